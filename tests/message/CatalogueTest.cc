#include <fstream>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "nvxcore/message/NVXx_PBDescriptor.h"
#include "nvxcore/message/internal/PBClass.h"
#include "nvxcore/message/schema/api_quota.pb.h"
#include "nvxcore/message/schema/atlas_api_event.pb.h"
#include "nvxcore/message/schema/client_parameters.pb.h"
#include "nvxcore/message/schema/client_properties.pb.h"
#include "nvxcore/message/schema/log_request.pb.h"
#include "nvxcore/message/schema/place_id.pb.h"
#include "nvxcore/message/schema/rect.pb.h"
#include "nvxcore/message/schema/resource.pb.h"
#include "nvxcore/message/schema/user_event.pb.h"
#include "nvxcore/message/schema/user_event3.pb.h"
#include "tests/message/MessageTest.h"

// The classes as their descriptors tell them, beside schema/catalogue.txt.

namespace nvxcore {
namespace {

using CatalogueTest = testing::MessageTest;
/// A message's lines by the first of them, which names it.
using Told = std::map<std::string, std::vector<std::string>>;

template <class... T>
std::vector<const PBClass*> classesOf() {
  return {&T::messageClass()...};
}

/// All that can be reached from the messages that nothing else holds.
std::vector<const PBClass*> allClasses() {
  std::vector<const PBClass*> all =
      classesOf<NVXx_ZLCClientPropertiesRequestProto, NVXx_ZLCClientPropertiesResponseProto,
                NVXx_ZLCClientInformation, NVXx_ZLCResourceRequestProto, NVXx_ZLCResourceResponseProto,
                NVXx_ZLCClientParametersRequestProto, NVXx_ZLCClientParametersResponseProto,
                NVXx_ZLCApiQuotaEventRequestProto, NVXx_ZLCApiQuotaEventResponseProto, NVXx_LogRequest,
                NVXx_LogResponse, NVXx_ZLCUserEvent3RequestProto, NVXx_ZLCUserEvent3ResponseProto,
                NVXx_ZLCUserEventRequestProto, NVXx_AtlasApiEvent, NVXx_AtlasApiEventType, NVXx_PlaceId,
                NVXx_GSRectProto>();
  std::set<const PBClass*> seen(all.begin(), all.end());
  for (size_t i = 0; i < all.size(); ++i) {
    for (const auto& field : all[i]->descriptorOfClass().fields()) {
      if (field->msgClass() && seen.insert(field->msgClass()).second) all.push_back(field->msgClass());
    }
  }
  return all;
}

std::string labelOf(const NVXx_PBFieldDescriptor& field) {
  switch (field.flags() & 0x1E) {
    case 0x2:
      return "required";
    case 0x4:
      return "repeated";
    case 0x10:
      return "optional";
  }
  return "of no label that is in use";
}

std::string typeOf(const NVXx_PBFieldDescriptor& field) {
  static const char* const kNames[] = {"Bool",   "Fixed32", "SFixed32", "Float",   "Fixed64", "SFixed64",
                                       "Double", "Int32",   "Int64",    "SInt32",  "SInt64",  "UInt32",
                                       "UInt64", "Data",    "String",   "Message", "Group",   "Enum"};
  return kNames[static_cast<size_t>(field.type())];
}

std::string defaultOf(const NVXx_PBFieldDescriptor& field) {
  if (!field.hasDefaultValue()) return "-";
  const PBBoxedValue value = field.defaultValue();
  if (field.type() == NVXx_PBType::Bool) return value.boolValue() ? "true" : "false";
  if (value.isNumber()) return std::to_string(value.int64Value());
  const std::string text(value.object().string().view());
  const size_t end = text.find('/', 8);
  const bool isExample = text.starts_with("https://") && text.substr(0, end).ends_with(".example.com");
  return isExample ? "url" : text;
}

std::string lineOf(const NVXx_PBFieldDescriptor& field) {
  std::string line = std::to_string(field.number()) + " " + field.name() + " " + typeOf(field) + " " +
                     labelOf(field) + " " + defaultOf(field);
  if (field.msgClass()) line += " " + field.msgClass()->name;
  if (field.enumDescriptor()) line += " " + field.enumDescriptor()->name();
  return line;
}

/// The numbers that an enum takes, tried one by one around those that are told anywhere.
std::string numbersOf(const NVXx_PBEnumDescriptor& enumeration) {
  std::string text;
  size_t count = 0;
  for (int32_t first = -70000; first < 70000; ++first) {
    if (!enumeration.isValidValue(first)) continue;
    int32_t last = first;
    while (enumeration.isValidValue(last + 1)) ++last;
    text += (text.empty() ? "" : ", ") + std::to_string(first) + " to " + std::to_string(last);
    count += static_cast<size_t>(last - first + 1);
    first = last + 1;
  }
  EXPECT_EQ(enumeration.values().size(), count) << enumeration.name();
  EXPECT_FALSE(enumeration.isValidValue(INT32_MIN) || enumeration.isValidValue(INT32_MAX));
  return text;
}

Told linesOfClasses() {
  Told all;
  for (const PBClass* messageClass : allClasses()) {
    const NVXx_PBDescriptor& descriptor = messageClass->descriptorOfClass();
    std::string head = "message " + descriptor.name();
    for (const NVXx_PBExtensionRange& range : descriptor.extensionRanges()) {
      head += (&range == &descriptor.extensionRanges().front() ? " " : ", ") + std::to_string(range.start()) +
              " to " + std::to_string(range.end());
    }
    std::vector<const NVXx_PBEnumDescriptor*> enums = descriptor.enums();
    std::vector<std::string>& lines = all[head];
    for (const auto& field : descriptor.fields()) {
      lines.push_back(lineOf(*field));
      if (field->enumDescriptor()) enums.push_back(field->enumDescriptor());
    }
    for (const NVXx_PBEnumDescriptor* one : enums) {
      const std::string name = "enum " + one->name();
      if (!all.contains(name)) all[name] = {numbersOf(*one)};
    }
  }
  return all;
}

Told linesOfTable() {
  std::ifstream file(std::string(NVXCORE_GOLDEN_DIR) + "/../schema/catalogue.txt");
  EXPECT_TRUE(file.good());
  Told all;
  std::string line, head;
  while (std::getline(file, line)) {
    if (line.empty() || line[0] == '#') continue;
    const size_t colon = line.find(':');
    if (line.starts_with("enum ")) {
      all[line.substr(0, colon)] = {line.substr(colon + 2)};
    } else if (line.starts_with("message ")) {
      head = line;
      EXPECT_TRUE(all.try_emplace(head).second) << line;
    } else {
      all[head].push_back(line);
    }
  }
  return all;
}

TEST_F(CatalogueTest, ClassesAreWhatTheTableHas) {
  const Told told = linesOfTable();
  const Told built = linesOfClasses();
  for (const auto& [head, lines] : told) {
    const auto found = built.find(head);
    if (found == built.end()) {
      ADD_FAILURE() << "there is no " << head;
    } else {
      EXPECT_EQ(found->second, lines) << head;
    }
  }
  for (const auto& [head, lines] : built) EXPECT_TRUE(told.contains(head)) << head << " is not in the table";
  EXPECT_EQ(told.size(), 98U + 20U);
}

TEST_F(CatalogueTest, TwoNamesDoNotFollowFromTheirAccessors) {
  std::vector<std::string> names;
  for (const PBClass* messageClass : allClasses()) {
    for (const auto& field : messageClass->descriptorOfClass().fields()) {
      if (field->flags() & 0x200000) names.push_back(field->name() + " " + field->textFormatName());
    }
  }
  EXPECT_EQ(names, (std::vector<std::string>{"openglEs1XSupported opengl_es_1x_supported",
                                             "openglEs2XSupported opengl_es_2x_supported"}));
}

}  // namespace
}  // namespace nvxcore
