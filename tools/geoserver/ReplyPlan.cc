#include "tools/geoserver/ReplyPlan.h"

#include <utility>

namespace nvxcore::geoserver {

ReplyPlan ReplyPlan::withBody(int status, std::string_view contentType, std::string body) {
  ReplyPlan plan;
  plan.status = status;
  plan.body = std::move(body);
  if (contentType.empty()) {
    plan.withoutHeader("Content-Type");
  } else {
    plan.withHeader("Content-Type", contentType);
  }
  return plan;
}

ReplyPlan ReplyPlan::raw(std::string bytes, After after) {
  ReplyPlan plan;
  plan.after = after;
  plan.thenRaw(std::move(bytes));
  return plan;
}

ReplyPlan& ReplyPlan::withHeader(std::string_view name, std::string_view value) {
  headers.add(name, value);
  return *this;
}

ReplyPlan& ReplyPlan::withoutHeader(std::string_view name) {
  headers.remove(name);
  absent.emplace_back(name);
  return *this;
}

ReplyPlan& ReplyPlan::withChange(BodyChange change) {
  changes.push_back(std::move(change));
  return *this;
}

ReplyPlan& ReplyPlan::withFault(FaultKind kind, std::string words) {
  fault = kind;
  label = words.empty() ? faultName(kind) : std::move(words);
  return *this;
}

ReplyPlan& ReplyPlan::answeredEarly(Intake bodyIntake) {
  early = true;
  intake = bodyIntake;
  return *this;
}

ReplyPlan& ReplyPlan::then(ReplyStep step) {
  steps.push_back(std::move(step));
  return *this;
}

ReplyPlan& ReplyPlan::thenHead() { return then({.kind = ReplyStep::Kind::head}); }

ReplyPlan& ReplyPlan::thenBytes(uint64_t count) {
  return then({.kind = ReplyStep::Kind::bytes, .amount = count});
}

ReplyPlan& ReplyPlan::thenShare(uint64_t thousandths) {
  return then({.kind = ReplyStep::Kind::share, .amount = thousandths});
}

ReplyPlan& ReplyPlan::thenUpToAnswer(uint64_t answers) {
  return then({.kind = ReplyStep::Kind::upToAnswer, .amount = answers});
}

ReplyPlan& ReplyPlan::thenRest() { return then({.kind = ReplyStep::Kind::rest}); }

ReplyPlan& ReplyPlan::thenDrip(uint64_t bytes, Millis every) {
  return then({.kind = ReplyStep::Kind::drip, .amount = bytes ? bytes : 1, .wait = every});
}

ReplyPlan& ReplyPlan::thenRaw(std::string bytes) {
  return then({.kind = ReplyStep::Kind::raw, .text = std::move(bytes)});
}

ReplyPlan& ReplyPlan::thenInterim(int interimStatus, HeaderList fields) {
  return then({.kind = ReplyStep::Kind::interim,
               .amount = static_cast<uint64_t>(interimStatus),
               .headers = std::move(fields)});
}

ReplyPlan& ReplyPlan::thenPause(Millis wait) { return then({.kind = ReplyStep::Kind::pause, .wait = wait}); }

ReplyPlan& ReplyPlan::thenStall(std::string gate) {
  return then({.kind = ReplyStep::Kind::stall, .text = std::move(gate)});
}

ReplyPlan& ReplyPlan::thenClose() { return then({.kind = ReplyStep::Kind::close}); }

ReplyPlan& ReplyPlan::thenReset() { return then({.kind = ReplyStep::Kind::reset}); }

ReplyPlan& ReplyPlan::thenStreamReset(uint32_t code) {
  return then({.kind = ReplyStep::Kind::streamReset, .amount = code});
}

ReplyPlan& ReplyPlan::thenGoAway(uint32_t code, bool refuse) {
  return then({.kind = ReplyStep::Kind::goAway, .amount = code, .refuse = refuse});
}

}  // namespace nvxcore::geoserver
