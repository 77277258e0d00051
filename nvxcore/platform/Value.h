#pragma once

#include <any>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>

#include "nvxcore/platform/Data.h"
#include "nvxcore/platform/Date.h"
#include "nvxcore/platform/Dictionary.h"
#include "nvxcore/platform/Error.h"
#include "nvxcore/platform/Export.h"
#include "nvxcore/platform/URL.h"

namespace nvxcore {

/// A value in a dictionary: nothing, a bool, a number, a string, a date, bytes, a URL, an error, a
/// dictionary, or any object.
class NVXCORE_EXPORT Value {
 public:
  Value() = default;
  Value(bool value) : _value(value) {}  // NOLINT(google-explicit-constructor): so are the next ones
  template <class N>
  requires(std::is_integral_v<N> && !std::is_same_v<N, bool>) Value(N value) {  // NOLINT
    if constexpr (std::is_signed_v<N>) {
      _value = static_cast<int64_t>(value);
    } else {
      _value = static_cast<uint64_t>(value);
    }
  }
  Value(double value) : _value(value) {}                         // NOLINT
  Value(const char* value) : _value(std::string(value)) {}       // NOLINT
  Value(std::string value) : _value(std::move(value)) {}         // NOLINT
  Value(std::string_view value) : _value(std::string(value)) {}  // NOLINT
  Value(Date value) : _value(value) {}                           // NOLINT
  Value(Data value) : _value(std::move(value)) {}                // NOLINT
  Value(URL value) : _value(std::move(value)) {}                 // NOLINT
  Value(Error value) : _value(std::move(value)) {}               // NOLINT
  Value(Dictionary value);                                       // NOLINT
  /// Any other object, a shared or weak reference, say.
  static Value object(std::any object) {
    Value value;
    value._value = std::move(object);
    return value;
  }

  /// What a value holds. A number keeps the kind that it was made with.
  enum class Kind {
    Nothing,
    Bool,
    Signed,
    Unsigned,
    Double,
    String,
    Date,
    Data,
    URL,
    Error,
    Dictionary,
    Object
  };
  Kind kind() const { return static_cast<Kind>(_value.index()); }
  explicit operator bool() const { return kind() != Kind::Nothing; }

  /// The truth of a bool or a number, or of a string that begins with Y, y, T, t or a digit from 1 to 9; else
  /// false.
  bool boolValue() const;
  /// A number as an integer, cut toward zero and at the ends of the range; the leading integer of a string;
  /// else 0.
  int64_t integerValue() const;
  /// As `integerValue`, up to the largest unsigned number; a negative one is 0.
  uint64_t unsignedIntegerValue() const;
  double doubleValue() const;
  /// As text: a string as it stands, a bool as 1 or 0, a number in decimal, a URL and an error as they tell
  /// it, bytes as hexadecimal in angle brackets; "(null)" for nothing. The same in every locale.
  std::string description() const;
  /// The string, or null when this is none.
  const std::string* string() const { return std::get_if<std::string>(&_value); }
  Data data() const { return get<Data>(); }
  std::optional<Date> date() const {
    const Date* date = std::get_if<Date>(&_value);
    return date ? std::optional<Date>(*date) : std::nullopt;
  }
  URL url() const { return get<URL>(); }
  Error error() const { return get<Error>(); }
  /// The dictionary, or null when this is none.
  const Dictionary* dictionary() const;
  /// The object when it is exactly a T, else a T made from nothing.
  template <class T>
  T objectAs() const {
    if (const std::any* object = std::get_if<std::any>(&_value)) {
      if (const T* typed = std::any_cast<T>(object)) return *typed;
    }
    return T{};
  }

 private:
  template <class T>
  T get() const {
    const T* value = std::get_if<T>(&_value);
    return value ? *value : T{};
  }

  std::variant<std::monostate, bool, int64_t, uint64_t, double, std::string, Date, Data, URL, Error,
               std::shared_ptr<const Dictionary>, std::any>
      _value;
};

}  // namespace nvxcore
