#include "tests/message/PlainReader.h"

namespace nvxcore::testing::plain {

namespace {

struct Failure {
  std::string text;
};
struct Endless {};

class Reader {
 public:
  Reader(const std::vector<Class>& schema, std::string_view bytes, bool knowsExtensions, size_t& steps,
         int chain)
      : _schema(schema), _bytes(bytes), _knowsExtensions(knowsExtensions), _steps(steps), _chain(chain) {}

  void merge(int message, Values& into) {
    for (;;) {
      const int32_t tag = readTag();
      if (tag == 0 || !field(message, static_cast<uint32_t>(tag), into)) return;
    }
  }
  void lastTagMustBe(int32_t expected) const {
    if (_lastTag == expected) return;
    throw Failure{"NSParseErrorException: Last tag: " + std::to_string(_lastTag) + " should be " +
                  std::to_string(expected)};
  }

  uint64_t position = 0;
  bool movedBack = false;

 private:
  [[noreturn]] static void truncated() { throw Failure{"NSParseErrorException: "}; }

  void step() {
    if (_steps == 0) throw Endless();
    --_steps;
  }
  void need(uint64_t count) {
    const uint64_t after = position + count;
    if (after > _bytes.size()) truncated();
    if (after > _limit) {
      moveTo(_limit);
      truncated();
    }
  }
  void moveTo(uint64_t to) {
    if (to < position) movedBack = true;
    position = to;
  }
  uint8_t byte() {
    need(1);
    return static_cast<uint8_t>(_bytes[position++]);
  }
  uint64_t varint(const char* name) {
    uint64_t value = 0;
    for (int i = 0; i < 10; ++i) {
      const uint64_t b = byte();
      if (i < 9) {
        value += (b % 128) * (uint64_t{1} << (7 * i));
      } else if (b % 2) {
        value += uint64_t{1} << 63;
      }
      if (b < 128) return value;
    }
    throw Failure{std::string("NSParseErrorException: Unable to read ") + name};
  }
  int32_t varint32() { return static_cast<int32_t>(static_cast<uint32_t>(varint("varint32"))); }
  int32_t readTag() {
    step();
    if (position == _bytes.size() || position == _limit) return _lastTag = 0;
    _lastTag = varint32();
    if (_lastTag == 0) throw Failure{"NSParseErrorException: Invalid last tag 0"};
    return _lastTag;
  }
  uint64_t push(int64_t length) {
    const uint64_t limit = position + static_cast<uint64_t>(length);
    if (limit > _limit) {
      throw Failure{
          "NSInvalidArgumentException: byteLimit > oldLimit: " + std::to_string(static_cast<int64_t>(limit)) +
          " > " + std::to_string(static_cast<int64_t>(_limit))};
    }
    const uint64_t old = _limit;
    _limit = limit;
    return old;
  }
  void deeper() {
    if (_depth >= 64) throw Failure{"NSParseErrorException: recursionDepth(64) >= 64"};
  }
  void text() {
    const int64_t length = varint32();
    if (length == 0) return;
    need(static_cast<uint64_t>(length));
    moveTo(position + static_cast<uint64_t>(length));
  }
  // False where there is nothing.
  bool bytes() {
    const int32_t length = varint32();
    if (length < 0) return false;
    need(static_cast<uint64_t>(length));
    position += static_cast<uint64_t>(length);
    return true;
  }
  void fixed(uint64_t width) {
    need(width);
    position += width;
  }

  bool skip(int32_t tag) {
    step();
    switch (tag & 7) {
      case 0:
        varint32();
        return true;
      case 1:
        fixed(8);
        return true;
      case 2: {
        const int64_t length = varint32();
        need(static_cast<uint64_t>(length));
        moveTo(position + static_cast<uint64_t>(length));
        return true;
      }
      case 3:
        for (;;) {
          const int32_t inner = readTag();
          if (inner == 0 || !skip(inner)) break;
        }
        lastTagMustBe((tag & ~7) | 4);
        return true;
      case 4:
        return false;
      case 5:
        fixed(4);
        return true;
      default:
        throw Failure{"NSParseErrorException: Invalid tag " + std::to_string(tag)};
    }
  }

  static uint32_t wireOf(const Field& field) {
    if (field.isPacked) return 2;
    switch (field.kind) {
      case Kind::Varint32:
      case Kind::Varint64:
        return 0;
      case Kind::Fixed64:
        return 1;
      case Kind::Group:
        return 3;
      case Kind::Fixed32:
        return 5;
      default:
        return 2;
    }
  }

  void scalar(const Field& field) {
    step();
    switch (field.kind) {
      case Kind::Varint32:
        varint32();
        break;
      case Kind::Varint64:
        varint("varint64");
        break;
      case Kind::Fixed32:
        fixed(4);
        break;
      default:
        fixed(8);
    }
  }

  bool field(int message, uint32_t tag, Values& into) {
    const Class& own = _schema[static_cast<size_t>(message)];
    const uint32_t number = tag >> 3;
    const auto known = own.fields.find(number);
    if (known != own.fields.end() && wireOf(known->second) == (tag & 7)) {
      value(known->second, number, into, false);
      return true;
    }
    const auto extension = own.extensions.find(number);
    const bool isExtension = _knowsExtensions && extension != own.extensions.end();
    if (isExtension && wireOf(extension->second) == (tag & 7)) {
      value(extension->second, number, into, true);
      return true;
    }
    if (!isExtension && own.isMessageSet && tag == 11) {
      item(message, into);
      return true;
    }
    return unknown(tag, into);
  }

  void value(const Field& field, uint32_t number, Values& into, bool isExtension) {
    if (field.isPacked) {
      const uint64_t old = push(varint32());
      while (_limit != position) {
        scalar(field);
        ++into.scalars[number];
      }
      _limit = old;
      return;
    }
    switch (field.kind) {
      case Kind::Bytes:
        if (!bytes()) {
          if (field.isRepeated && isExtension) {
            throw Failure{"NSInvalidArgumentException: Attempting to add nil to a PBArray"};
          }
          if (!field.isRepeated) into.scalars.erase(number);
          return;
        }
        break;
      case Kind::Text:
        text();
        break;
      case Kind::Message:
      case Kind::Group:
        return nested(field, number, into);
      default:
        scalar(field);
    }
    if (field.isRepeated) {
      ++into.scalars[number];
    } else {
      into.scalars[number] = 1;
    }
  }

  void nested(const Field& field, uint32_t number, Values& into) {
    Values made;
    std::vector<Values>& list = into.messages[number];
    if (!field.isRepeated && !list.empty()) made = list.front();
    if (field.isMessageSetItem) {
      if (_chain > 900) throw Endless();
      ++_chain;
      merge(field.message, made);
      --_chain;
    } else if (field.kind == Kind::Group) {
      deeper();
      ++_depth;
      merge(field.message, made);
      lastTagMustBe(static_cast<int32_t>(number * 8 + 4));
      --_depth;
    } else {
      const int32_t length = varint32();
      deeper();
      const uint64_t old = push(length);
      ++_depth;
      merge(field.message, made);
      lastTagMustBe(0);
      --_depth;
      _limit = old;
    }
    if (field.isRepeated) {
      list.push_back(std::move(made));
    } else {
      list.assign(1, std::move(made));
    }
  }

  void item(int message, Values& into) {
    std::string_view payload;
    bool hasPayload = false;
    uint32_t id = 0;
    const Field* found = nullptr;
    for (;;) {
      const int32_t tag = readTag();
      if (tag == 0) break;
      if (tag == 26) {
        hasPayload = false;
        const uint64_t before = position;
        if (bytes()) {
          Reader again(_schema, _bytes, _knowsExtensions, _steps, 0);
          again.position = before;
          again._limit = _limit;
          const auto length = static_cast<uint64_t>(again.varint32());
          payload = _bytes.substr(again.position, length);
          hasPayload = true;
        }
      } else if (tag == 16) {
        id = static_cast<uint32_t>(varint32());
        if (id) {
          const Class& own = _schema[static_cast<size_t>(message)];
          const auto extension = own.extensions.find(id);
          found = _knowsExtensions && extension != own.extensions.end() ? &extension->second : nullptr;
        }
      } else if (!skip(tag)) {
        break;
      }
    }
    lastTagMustBe(12);
    if (!hasPayload || !id) return;
    if (!found) {
      ++into.unknown[id][2];
      return;
    }
    if (_chain > 900) throw Endless();
    Reader inner(_schema, payload, _knowsExtensions, _steps, _chain + 1);
    try {
      inner.value(*found, id, into, true);
    } catch (...) {
      movedBack = movedBack || inner.movedBack;
      throw;
    }
    movedBack = movedBack || inner.movedBack;
  }

  bool unknown(uint32_t tag, Values& into) {
    const uint32_t number = tag >> 3;
    const auto add = [&](int wireType) {
      if (number == 0) throw Failure{"NSInvalidArgumentException: Zero is not a valid field number."};
      ++into.unknown[number][wireType];
    };
    switch (tag & 7) {
      case 0:
        varint("varint64");
        break;
      case 1:
        fixed(8);
        break;
      case 2:
        if (!bytes() && number && into.unknown[number][2]) {
          throw Failure{"NSInvalidArgumentException: Attempting to add nil to a PBArray"};
        }
        break;
      case 3: {
        Values group;
        deeper();
        ++_depth;
        for (;;) {
          const int32_t inner = readTag();
          if (inner == 0 || !unknown(static_cast<uint32_t>(inner), group)) break;
        }
        lastTagMustBe(static_cast<int32_t>(tag - 3 + 4));
        --_depth;
        add(3);
        into.unknownGroups[number].push_back(std::move(group));
        return true;
      }
      case 5:
        fixed(4);
        break;
      default:
        return false;
    }
    add(static_cast<int>(tag & 7));
    return true;
  }

  const std::vector<Class>& _schema;
  const std::string_view _bytes;
  const bool _knowsExtensions;
  size_t& _steps;
  int _chain;
  uint64_t _limit = UINT64_MAX;
  int32_t _lastTag = 0;
  int _depth = 0;
};

}  // namespace

size_t Values::count() const {
  size_t total = 0;
  for (const auto& [number, values] : scalars) total += static_cast<size_t>(values);
  for (const auto& [number, values] : unknown) {
    for (const auto& [wireType, how] : values) total += static_cast<size_t>(how);
  }
  for (const auto* lists : {&messages, &unknownGroups}) {
    for (const auto& [number, list] : *lists) {
      for (const Values& one : list) total += one.count() + (lists == &messages);
    }
  }
  return total;
}

Outcome read(const std::vector<Class>& schema, int message, std::string_view bytes, bool knowsExtensions,
             size_t steps) {
  Values values;
  Reader reader(schema, bytes, knowsExtensions, steps, 0);
  std::string failure;
  try {
    reader.merge(message, values);
    reader.lastTagMustBe(0);
  } catch (const Failure& thrown) {
    failure = thrown.text;
  } catch (const Endless&) {
    return {false, "", 0, reader.movedBack, 0};
  }
  return {true, failure, reader.position, reader.movedBack, failure.empty() ? values.count() : 0};
}

}  // namespace nvxcore::testing::plain
