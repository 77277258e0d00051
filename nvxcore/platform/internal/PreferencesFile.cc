#include "nvxcore/platform/internal/PreferencesFile.h"

#include <bit>
#include <cstdint>
#include <string_view>
#include <utility>

#include "nvxcore/platform/Digest.h"

namespace nvxcore {

namespace {

using Kind = Value::Kind;

constexpr std::string_view kMagic("NVXPREF\x01", 8);
constexpr size_t kHeaderLength = kMagic.size() + sizeof(SHA256Digest);
constexpr int kMostDepth = 32;

/// The kinds as they stand in a file, which must not change with those of `Value`.
enum class Tag : uint8_t { Nothing, Bool, Signed, Unsigned, Double, String, Date, Data, URL, Dictionary };

std::string_view view(const SHA256Digest& digest) {
  return {reinterpret_cast<const char*>(digest.data()), digest.size()};
}

class Writer {
 public:
  void text(std::string_view value) {
    number(value.size(), 4);
    _bytes.append(value);
  }
  void value(const Value& value) {
    switch (value.kind()) {
      case Kind::Bool:
        tag(Tag::Bool);
        return number(value.boolValue(), 1);
      case Kind::Signed:
        tag(Tag::Signed);
        return number(static_cast<uint64_t>(value.integerValue()), 8);
      case Kind::Unsigned:
        tag(Tag::Unsigned);
        return number(value.unsignedIntegerValue(), 8);
      case Kind::Double:
        tag(Tag::Double);
        return number(std::bit_cast<uint64_t>(value.doubleValue()), 8);
      case Kind::String:
        tag(Tag::String);
        return text(*value.string());
      case Kind::Date:
        tag(Tag::Date);
        return number(std::bit_cast<uint64_t>(value.date()->timeIntervalSinceReferenceDate()), 8);
      case Kind::Data:
        tag(Tag::Data);
        return text(value.data().view());
      case Kind::URL:
        tag(Tag::URL);
        return text(value.url().absoluteString());
      case Kind::Dictionary: {
        tag(Tag::Dictionary);
        Writer within;
        within.entries(*value.dictionary());
        return text(within._bytes);
      }
      case Kind::Nothing:
      case Kind::Error:
      case Kind::Object:
        return tag(Tag::Nothing);
    }
  }
  template <class Entries>
  void entries(const Entries& entries) {
    for (const auto& [key, value] : entries) {
      text(key);
      this->value(value);
    }
  }
  std::string_view bytes() const { return _bytes; }

 private:
  void tag(Tag tag) { number(static_cast<uint64_t>(tag), 1); }
  void number(uint64_t value, int bytes) {
    while (bytes-- > 0) _bytes += static_cast<char>(value >> (8 * bytes));
  }

  std::string _bytes;
};

/// Reads what `Writer` wrote; once something is amiss, nothing more.
class Reader {
 public:
  explicit Reader(std::string_view bytes) : _bytes(bytes) {}

  std::string_view text() { return take(number(4)); }
  Value value(int depth) {
    switch (static_cast<Tag>(number(1))) {
      case Tag::Nothing:
        return {};
      case Tag::Bool: {
        const uint64_t truth = number(1);
        _isSound = _isSound && truth <= 1;
        return truth == 1;
      }
      case Tag::Signed:
        return static_cast<int64_t>(number(8));
      case Tag::Unsigned:
        return number(8);
      case Tag::Double:
        return std::bit_cast<double>(number(8));
      case Tag::String:
        return text();
      case Tag::Date:
        return Date::withTimeIntervalSinceReferenceDate(std::bit_cast<double>(number(8)));
      case Tag::Data:
        return Data::copy(text());
      case Tag::URL:
        return URL::withString(text());
      case Tag::Dictionary: {
        Reader within(text());
        Dictionary dictionary;
        while (within.hasMore() && depth < kMostDepth) {
          const std::string_view key = within.text();
          dictionary.set(key, within.value(depth + 1));
        }
        _isSound = _isSound && within._isSound && within._bytes.empty();
        return dictionary;
      }
    }
    _isSound = false;
    return {};
  }
  bool hasMore() const { return _isSound && !_bytes.empty(); }
  bool isSound() const { return _isSound; }

 private:
  std::string_view take(uint64_t length) {
    _isSound = _isSound && length <= _bytes.size();
    if (!_isSound) return {};
    const std::string_view part = _bytes.substr(0, length);
    _bytes.remove_prefix(length);
    return part;
  }
  uint64_t number(size_t bytes) {
    uint64_t value = 0;
    for (char c : take(bytes)) value = value << 8 | static_cast<unsigned char>(c);
    return value;
  }

  std::string_view _bytes;
  bool _isSound = true;
};

bool canBePreference(const Value& value, int depth) {
  if (value.kind() == Kind::Error || value.kind() == Kind::Object) return false;
  if (!value.dictionary()) return true;
  if (depth == kMostDepth) return false;
  for (const auto& [key, within] : *value.dictionary()) {
    if (!canBePreference(within, depth + 1)) return false;
  }
  return true;
}

}  // namespace

bool canBePreference(const Value& value) { return canBePreference(value, 0); }

Data encodedPreferences(const PreferencesContents& contents) {
  Writer writer;
  for (const auto& [key, value] : contents) {
    writer.text(key);
    writer.value(value);
    if (kHeaderLength + writer.bytes().size() > kMostPreferencesBytes) return {};
  }
  MutableData bytes(kHeaderLength + writer.bytes().size());
  bytes.append(kMagic);
  bytes.append(view(sha256({writer.bytes()})));
  bytes.append(writer.bytes());
  return Data::take(std::move(bytes));
}

std::optional<PreferencesContents> decodedPreferences(const Data& bytes) {
  const std::string_view all = bytes.view();
  if (all.size() < kHeaderLength || all.size() > kMostPreferencesBytes || !all.starts_with(kMagic))
    return std::nullopt;
  const std::string_view entries = all.substr(kHeaderLength);
  if (all.substr(kMagic.size(), sizeof(SHA256Digest)) != view(sha256({entries}))) return std::nullopt;
  Reader reader(entries);
  PreferencesContents contents;
  while (reader.hasMore()) {
    const std::string_view key = reader.text();
    Value value = reader.value(0);
    if (!contents.empty() && key <= contents.rbegin()->first) return std::nullopt;
    contents.emplace_hint(contents.end(), key, std::move(value));
  }
  return reader.isSound() ? std::optional(std::move(contents)) : std::nullopt;
}

}  // namespace nvxcore
