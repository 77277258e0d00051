#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "nvxcore/message/NVXx_PBArray.h"
#include "nvxcore/message/NVXx_PBExtension.h"
#include "nvxcore/message/NVXx_PBRef.h"
#include "nvxcore/message/NVXx_PBRootObject.h"
#include "nvxcore/message/NVXx_PBString.h"
#include "nvxcore/message/NVXx_PBValue.h"
#include "nvxcore/platform/Data.h"
#include "nvxcore/platform/Error.h"
#include "nvxcore/platform/Export.h"

namespace nvxcore {

class Dictionary;
class NVXx_PBCodedInputStream;
class NVXx_PBCodedOutputStream;
class NVXx_PBDescriptor;
class NVXx_PBExtensionRange;
class NVXx_PBExtensionRegistry;
class NVXx_PBFieldDescriptor;
class NVXx_PBUnknownFieldSet;
class OutputStream;
struct PBClass;
struct PBSide;

inline constexpr char kPBGeneratedMessageErrorDomain[] = "NVXx_PBGeneratedMessageErrorDomain";
inline constexpr int64_t kPBGeneratedMessageErrorCode = -100;
inline constexpr char kPBErrorReasonKey[] = "NVXx_PBErrorReasonKey";
inline constexpr char kPBCoderDataKey[] = "NVXx_PBGeneratedMessageData";

/// The one base class of all messages. A generated class has no data of its own: what a message holds lies in
/// one block behind this header, as the class's table lays it out.
///
/// Threads: any number of threads may read one message at once as long as nobody writes it. Reading includes
/// what creates latent children and arrays (getters), copying, being the source of a merge, comparing,
/// sizing, writing out and printing. A message, its latent children and the chain of its parents count as one
/// for the rule that a writer is alone; so does destroying one of them. Copies share singular children,
/// strings and data with their source: hand a `deepCopy` to another queue when either side is to change.
class NVXCORE_EXPORT NVXx_PBGeneratedMessage : public NVXx_PBRootObject {
 public:
  NVXx_PBGeneratedMessage(const NVXx_PBGeneratedMessage&) = delete;
  NVXx_PBGeneratedMessage& operator=(const NVXx_PBGeneratedMessage&) = delete;

  void retain() const;
  void release() const;

  /// For a class that is known at run time only; otherwise as the class's own.
  static Ref<NVXx_PBGeneratedMessage> parseFromData(const PBClass& messageClass, const Data& data,
                                                    const NVXx_PBExtensionRegistry* registry, Error* error);

  const PBClass& classOfMessage() const { return *_class; }
  const NVXx_PBDescriptor& descriptorOfMessage() const;

  // State.
  /// All fields, extensions and unknown fields to absent. Doesn't make it visible to the parent that made it.
  void clear();
  /// True when all required fields are set, in all the messages within too.
  bool isInitialized() const;
  /// The unknown fields, or null when there never were any.
  Ref<NVXx_PBUnknownFieldSet> unknownFields() const;
  /// Creates the set on first need, which makes the message visible to its parent.
  NVXx_PBUnknownFieldSet& mutableUnknownFields();
  /// Keeps a copy; null takes them away.
  void setUnknownFields(const NVXx_PBUnknownFieldSet* fields);
  void mergeUnknownFields(const NVXx_PBUnknownFieldSet* fields);
  void clearAutocreator();
  bool wasAutocreatedBy(const NVXx_PBGeneratedMessage& parent) const;

  // Reading the wire format. Throws what the coded input stream throws; what was read until then stays.
  void mergeFromCodedInputStream(NVXx_PBCodedInputStream& stream, const NVXx_PBExtensionRegistry* registry);
  /// Strings and data share the bytes of `data` and keep all of them alive.
  void mergeFromData(const Data& data, const NVXx_PBExtensionRegistry* registry = nullptr);
  void mergeDelimitedFromCodedInputStream(NVXx_PBCodedInputStream& stream,
                                          const NVXx_PBExtensionRegistry* registry);

  // Writing it.
  void writeToCodedOutputStream(NVXx_PBCodedOutputStream& stream) const;
  void writeDelimitedToCodedOutputStream(NVXx_PBCodedOutputStream& stream) const;
  void writeToOutputStream(const std::shared_ptr<OutputStream>& output) const;
  void writeDelimitedToOutputStream(const std::shared_ptr<OutputStream>& output) const;
  void writeField(const NVXx_PBFieldDescriptor& field, NVXx_PBCodedOutputStream& stream) const;
  Data data() const;
  Data delimitedData() const;
  /// Bytes of the serialised form.
  size_t serializedSize() const;
  /// Those of the extensions with numbers from the range's start up to its end, ascending.
  void writeExtensionsToCodedOutputStream(NVXx_PBCodedOutputStream& stream,
                                          const NVXx_PBExtensionRange& range) const;

  // An archive is a dictionary; a message puts its serialised form there as one Data. `initWithCoder` reads
  // it.
  static constexpr bool supportsSecureCoding() { return true; }
  void encodeWithCoder(Dictionary& coder) const;

  // By name, as the accessors do it: a repeated field gives its array, an absent field its default, an absent
  // message its latent child. A name that the class doesn't have throws NSInvalidArgumentException, a value
  // of the wrong type or class too, or the array's mismatch; nothing as a value takes the field away.
  PBBoxedValue valueForName(std::string_view name) const;
  void setValueForName(std::string_view name, const PBBoxedValue& value);
  bool hasValueForName(std::string_view name) const;

  /// Adds what `other` has: singular values replace, messages merge, arrays append. Throws
  /// NSInvalidArgumentException unless both are of one class.
  void mergeFrom(const NVXx_PBGeneratedMessage& other);
  bool isEqual(const NVXx_PBGeneratedMessage* other) const;
  /// The same for all messages of a class.
  size_t hash() const;
  std::string description() const;

  // Extensions. All but hasExtension and the listing throw NSInvalidArgumentException when the extension is
  // another class's.
  template <class T>
  auto getExtension(Extension<T> extension) const;
  template <class T>
  auto getExtension(RepeatedExtension<T> extension) const;
  template <class T>
  bool hasExtension(T extension) const {
    return hasExtensionField(extension.field());
  }
  template <class T, class V>
  void setExtension(Extension<T> extension, V&& value);
  template <class T, class V>
  void addExtension(RepeatedExtension<T> extension, V&& value);
  template <class T, class V>
  void setExtension(RepeatedExtension<T> extension, size_t index, V&& value);
  template <class T>
  void clearExtension(T extension) {
    clearExtensionField(extension.field());
  }
  // The same by the field itself, with values that know their type: a wrong one throws
  // NSInvalidArgumentException.
  bool hasExtensionField(const NVXx_PBExtensionField& field) const;
  /// Nothing where there is none.
  PBBoxedValue getExistingExtension(const NVXx_PBExtensionField& field) const;
  PBBoxedValue getExtensionValue(NVXx_PBExtensionField& field) const;
  void setExtensionValue(NVXx_PBExtensionField& field, const PBBoxedValue& value);
  void setExtensionValue(NVXx_PBExtensionField& field, size_t index, const PBBoxedValue& value);
  void addExtensionValue(NVXx_PBExtensionField& field, const PBBoxedValue& value);
  void clearExtensionField(const NVXx_PBExtensionField& field);
  std::vector<NVXx_PBExtensionField*> extensionsCurrentlySet() const;
  std::vector<NVXx_PBExtensionField*> sortedExtensionsInUse() const;
  size_t extensionsSerializedSize() const;

 protected:
  // What generated accessors forward to. `has` is the field's has-index, `offset` its slot's byte offset,
  // `field` its index in the message's table. Names of fields never begin with "pb_".

  bool pb_has(uint32_t has) const { return pb_words()[has >> 5] >> (has & 31) & 1; }

  template <class T>
  T pb_scalar(uint32_t has, uint32_t offset, T defaultValue = T()) const {
    if (!pb_has(has)) return defaultValue;
    T value;
    std::memcpy(&value, pb_storage() + offset, sizeof(T));
    return value;
  }
  bool pb_bool(uint32_t has, uint32_t offset, bool defaultValue = false) const {
    return pb_has(has) ? pb_storage()[offset] != 0 : defaultValue;
  }
  template <class T>
  void pb_setScalar(uint32_t has, uint32_t offset, T value) {
    std::memcpy(pb_storage() + offset, &value, sizeof(T));
    pb_words()[has >> 5] |= uint32_t{1} << (has & 31);
    if (_side.load(std::memory_order_relaxed)) [[unlikely]]
      pb_becomeVisible();
  }
  void pb_setBool(uint32_t has, uint32_t offset, bool value) {
    pb_setScalar<uint8_t>(has, offset, value ? 1 : 0);
  }

  /// A String or Data without an explicit default.
  std::string_view pb_bytes(uint32_t has, uint32_t offset) const;
  /// One with an explicit default.
  std::string_view pb_bytesOrDefault(uint32_t has, uint32_t offset, uint32_t field) const;
  NVXx_PBString pb_string(uint32_t field) const;
  Data pb_data(uint32_t field) const;
  void pb_setString(uint32_t field, const PBStringArgument& value);
  void pb_setData(uint32_t field, const PBDataArgument& value);

  template <class T>
  T& pb_child(uint32_t offset, uint32_t field) const {
    void* slot = pb_slot(offset);
    return *static_cast<T*>(slot ? static_cast<NVXx_PBGeneratedMessage*>(slot) : pb_autocreate(field));
  }
  void pb_setChild(uint32_t field, Ref<NVXx_PBGeneratedMessage> value);

  NVXx_PBMutableArray& pb_array(uint32_t offset, uint32_t field) const {
    void* slot = pb_slot(offset);
    return slot ? *static_cast<NVXx_PBMutableArray*>(slot) : *pb_autocreateArray(field);
  }
  void pb_setArray(uint32_t field, Ref<NVXx_PBMutableArray> value);

  /// The setHas accessors: throws NSInvalidArgumentException when `has` is true, else takes the field away.
  void pb_setHas(uint32_t field, bool has);

  static NVXx_PBGeneratedMessage* pb_new(const PBClass& messageClass);
  static NVXx_PBGeneratedMessage* pb_parse(const PBClass& messageClass, const Data& data,
                                           const NVXx_PBExtensionRegistry* registry);
  static NVXx_PBGeneratedMessage* pb_parse(const PBClass& messageClass, const Data& data,
                                           const NVXx_PBExtensionRegistry* registry, Error* error);
  static NVXx_PBGeneratedMessage* pb_parse(const PBClass& messageClass, NVXx_PBCodedInputStream& stream,
                                           bool delimited, const NVXx_PBExtensionRegistry* registry);
  static NVXx_PBGeneratedMessage* pb_decode(const PBClass& messageClass, const Dictionary& coder);
  static NVXx_PBGeneratedMessage* pb_parse(const PBClass& messageClass, NVXx_PBCodedInputStream& stream,
                                           bool delimited, const NVXx_PBExtensionRegistry* registry,
                                           Error* error);
  static const NVXx_PBDescriptor& pb_descriptor(const PBClass& messageClass);
  NVXx_PBGeneratedMessage* pb_copy() const;
  NVXx_PBGeneratedMessage* pb_deepCopy() const;

 private:
  friend struct PBMessageAccess;
  friend struct PBMessageMemory;
  explicit NVXx_PBGeneratedMessage(const PBClass& messageClass) : _class(&messageClass) {}
  ~NVXx_PBGeneratedMessage() = default;

  const uint8_t* pb_storage() const { return reinterpret_cast<const uint8_t*>(this + 1); }
  uint8_t* pb_storage() { return reinterpret_cast<uint8_t*>(this + 1); }
  const uint32_t* pb_words() const { return reinterpret_cast<const uint32_t*>(this + 1); }
  uint32_t* pb_words() { return reinterpret_cast<uint32_t*>(this + 1); }
  void* pb_slot(uint32_t offset) const {
    return __atomic_load_n(reinterpret_cast<void* const*>(pb_storage() + offset), __ATOMIC_ACQUIRE);
  }
  NVXx_PBGeneratedMessage* pb_autocreate(uint32_t field) const;
  NVXx_PBMutableArray* pb_autocreateArray(uint32_t field) const;
  void pb_becomeVisible();

  mutable std::atomic<uint32_t> _references{1};
  mutable std::atomic<uint32_t> _block{1};
  const PBClass* _class;
  mutable std::atomic<PBSide*> _side{nullptr};
};

static_assert(sizeof(NVXx_PBGeneratedMessage) == 24);

/// What every generated class derives from: the operations of the class, typed. `T::messageClass()` is
/// generated.
template <class T>
class PBMessageOf : public NVXx_PBGeneratedMessage {
 public:
  PBMessageOf() = delete;

  static const NVXx_PBDescriptor& descriptor() { return pb_descriptor(T::messageClass()); }
  /// A new, empty message.
  static Ref<T> message() { return pb_adopt(pb_new(T::messageClass())); }

  /// Throws the coded input stream's failures.
  static Ref<T> parseFromData(const Data& data, const NVXx_PBExtensionRegistry* registry = nullptr) {
    return pb_adopt(pb_parse(T::messageClass(), data, registry));
  }
  static Ref<T> parseFromCodedInputStream(NVXx_PBCodedInputStream& stream,
                                          const NVXx_PBExtensionRegistry* registry) {
    return pb_adopt(pb_parse(T::messageClass(), stream, false, registry));
  }
  /// An empty message at the end of the stream.
  static Ref<T> parseDelimitedFromCodedInputStream(NVXx_PBCodedInputStream& stream,
                                                   const NVXx_PBExtensionRegistry* registry) {
    return pb_adopt(pb_parse(T::messageClass(), stream, true, registry));
  }

  /// Nothing on a failure, which `error`, where it isn't null, then tells of; no error there otherwise.
  static Ref<T> parseFromData(const Data& data, Error* error) {
    return pb_adopt(pb_parse(T::messageClass(), data, nullptr, error));
  }
  static Ref<T> parseFromData(const Data& data, const NVXx_PBExtensionRegistry* registry, Error* error) {
    return pb_adopt(pb_parse(T::messageClass(), data, registry, error));
  }
  static Ref<T> parseFromCodedInputStream(NVXx_PBCodedInputStream& stream,
                                          const NVXx_PBExtensionRegistry* registry, Error* error) {
    return pb_adopt(pb_parse(T::messageClass(), stream, false, registry, error));
  }
  static Ref<T> parseDelimitedFromCodedInputStream(NVXx_PBCodedInputStream& stream,
                                                   const NVXx_PBExtensionRegistry* registry, Error* error) {
    return pb_adopt(pb_parse(T::messageClass(), stream, true, registry, error));
  }

  /// Null where the archive has no message's data; throws the coded input stream's failures. No extensions
  /// are known: they become unknown fields.
  static Ref<T> initWithCoder(const Dictionary& coder) {
    return pb_adopt(pb_decode(T::messageClass(), coder));
  }

  /// A new message that shares singular children, strings and data with this one; its arrays are new, their
  /// elements shared.
  Ref<T> copy() const { return pb_adopt(pb_copy()); }
  Ref<T> mutableCopy() const { return copy(); }
  /// A new message that shares nothing that can change.
  Ref<T> deepCopy() const { return pb_adopt(pb_deepCopy()); }

 private:
  static Ref<T> pb_adopt(NVXx_PBGeneratedMessage* message) { return Ref<T>::adopt(static_cast<T*>(message)); }
};

}  // namespace nvxcore
