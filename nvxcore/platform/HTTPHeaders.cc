#include "nvxcore/platform/HTTPHeaders.h"

#include <algorithm>
#include <atomic>

#include "nvxcore/platform/internal/Pooled.h"

namespace nvxcore {

namespace {

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c; }
char upper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c & ~0x20) : c; }

bool sameName(std::string_view a, std::string_view b) {
  return a.size() == b.size() &&
         std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) { return lower(x) == lower(y); });
}

/// Names whose usual spelling is not a capital at the start of each word.
constexpr std::string_view kIrregularNames[] = {
    "ETag", "WWW-Authenticate", "Content-MD5",     "MIME-Version", "TE", "DNT",
    "P3P",  "X-UA-Compatible",  "X-XSS-Protection"};

template <class Same>
std::optional<std::string> joined(const std::vector<HTTPHeaders::Field>& fields, Same same) {
  std::optional<std::string> result;
  for (const auto& [fieldName, value] : fields) {
    if (!same(fieldName)) continue;
    if (!result) {
      result = value;
    } else {
      result->append(", ").append(value);
    }
  }
  return result;
}

}  // namespace

struct HTTPHeaders::Shared : Pooled {
  std::atomic<uint32_t> references{1};
  std::vector<Field> fields;

  Shared() {
    constexpr size_t kUsualCount = 8;
    fields.reserve(kUsualCount);
  }
  void drop() noexcept {
    if (references.load(std::memory_order_acquire) == 1 ||
        references.fetch_sub(1, std::memory_order_acq_rel) == 1)
      delete this;
  }
};

HTTPHeaders::HTTPHeaders(std::initializer_list<Field> fields) { edit() = fields; }

HTTPHeaders::HTTPHeaders(const HTTPHeaders& other) : _shared(other._shared) {
  if (_shared) _shared->references.fetch_add(1, std::memory_order_relaxed);
}

HTTPHeaders::~HTTPHeaders() {
  if (_shared) _shared->drop();
}

const std::vector<HTTPHeaders::Field>& HTTPHeaders::fields() const {
  static const std::vector<Field> none;
  return _shared ? _shared->fields : none;
}

std::vector<HTTPHeaders::Field>& HTTPHeaders::edit() {
  if (!_shared) {
    _shared = new Shared;
  } else if (_shared->references.load(std::memory_order_acquire) != 1) {
    HTTPHeaders own;
    own.edit() = _shared->fields;
    std::swap(_shared, own._shared);
  }
  return _shared->fields;
}

std::optional<std::string> HTTPHeaders::value(std::string_view name) const {
  return joined(fields(), [name](const std::string& fieldName) { return sameName(fieldName, name); });
}

std::optional<std::string> HTTPHeaders::valueForExactName(std::string_view name) const {
  return joined(fields(), [name](const std::string& fieldName) { return fieldName == name; });
}

bool HTTPHeaders::contains(std::string_view name) const {
  return std::any_of(begin(), end(), [name](const Field& field) { return sameName(field.first, name); });
}

void HTTPHeaders::set(std::string_view name, std::optional<std::string_view> value) {
  if (!contains(name)) {
    if (value) add(name, *value);
    return;
  }
  // Name and value may be views of what is there.
  Field field(name, value.value_or(std::string_view()));
  const auto same = [key = std::string(name)](const Field& other) { return sameName(other.first, key); };
  std::vector<Field>& all = edit();
  auto first = std::find_if(all.begin(), all.end(), same);
  if (value) *first++ = std::move(field);
  all.erase(std::remove_if(first, all.end(), same), all.end());
}

void HTTPHeaders::add(std::string_view name, std::string_view value) {
  Field field(name, value);
  edit().push_back(std::move(field));
}

void HTTPHeaders::continueLast(std::string_view value) {
  if (empty()) return;
  const std::string more(value);
  edit().back().second.append(" ").append(more);
}

std::string HTTPHeaders::canonicalName(std::string_view name) {
  for (std::string_view irregular : kIrregularNames) {
    if (sameName(irregular, name)) return std::string(irregular);
  }
  std::string result(name);
  bool atStart = true;
  for (char& c : result) {
    c = atStart ? upper(c) : lower(c);
    atStart = c == '-';
  }
  return result;
}

}  // namespace nvxcore
