#include "benchmarks/message/Shapes.h"

#include <cstddef>

namespace nvxcore {
namespace {

constexpr struct Tables {
  PBFileHeader header;
  PBMessageEntry messages[4];
  PBFieldEntry fields[33];
  PBSideEntry sides[3];
  PBEnumEntry enums[1];
  int32_t numbers[4];
  char names[329];
} kTables = {
    {kPBTableFormat, 4, 1, 0, 0, 0, 33, 3, 4, 329, 0},
    {{18, 0, 0, 20, 1, 0, 0, 128, 0},
     {174, 20, 1, 2, 1, 0, 0, 16, 0},
     {207, 22, 2, 5, 0, 0, 0, 40, 0},
     {254, 27, 2, 6, 1, 0, 0, 56, 0}},
    {{1, 0, 8, NVXx_PBType::Int32, 0},
     {2, 1, 12, NVXx_PBType::Int32, 0},
     {3, 2, 16, NVXx_PBType::UInt32, 0},
     {4, 3, 40, NVXx_PBType::Int64, 0},
     {5, 4, 48, NVXx_PBType::Int64, 0},
     {6, 5, 56, NVXx_PBType::UInt64, 0},
     {7, 6, 20, NVXx_PBType::SInt32, 0},
     {8, 7, 64, NVXx_PBType::SInt64, 0},
     {9, 8, 4, NVXx_PBType::Bool, 0},
     {10, 9, 5, NVXx_PBType::Bool, 0},
     {11, 10, 24, NVXx_PBType::Enum, PBFieldEnumDescriptor},
     {12, 11, 28, NVXx_PBType::Fixed32, 0},
     {13, 12, 72, NVXx_PBType::Fixed64, 0},
     {14, 13, 32, NVXx_PBType::Float, 0},
     {15, 14, 80, NVXx_PBType::Double, 0},
     {16, 15, 88, NVXx_PBType::String, 0},
     {17, 16, 96, NVXx_PBType::String, 0},
     {18, 17, 104, NVXx_PBType::String, 0},
     {19, 18, 112, NVXx_PBType::String, 0},
     {20, 19, 120, NVXx_PBType::Data, 0},
     {1, 0, 8, NVXx_PBType::Message, PBFieldRepeated},
     {2, 1, 4, NVXx_PBType::Int32, 0},
     {1, 0, 8, NVXx_PBType::String, 0},
     {2, 1, 4, NVXx_PBType::Int32, 0},
     {3, 2, 16, NVXx_PBType::Fixed64, 0},
     {4, 3, 24, NVXx_PBType::String, 0},
     {5, 4, 32, NVXx_PBType::Data, 0},
     {1, 0, 8, NVXx_PBType::String, 0},
     {2, 1, 16, NVXx_PBType::Int64, 0},
     {3, 2, 24, NVXx_PBType::Int32, PBFieldRepeated | PBFieldPacked},
     {4, 3, 32, NVXx_PBType::Int32, PBFieldRepeated},
     {5, 4, 40, NVXx_PBType::Message, PBFieldRepeated},
     {6, 5, 48, NVXx_PBType::String, 0}},
    {{10, PBSideEnum, 0}, {0, PBSideClass, 2}, {4, PBSideClass, 3}},
    {{314, 0, PBNone, 4, 0, PBEnumHasNames, 0}},
    {0, 1, 2, 3},
    "NVXx_BMShapesRoot\0"
    "NVXx_"
    "BMEvent\0value1\0value2\0value3\0value4\0value5\0value6\0value7\0value8\0value9\0value10\0value11\0value"
    "12\0value13\0value14\0value15\0text1\0text2\0text3\0text4\0payload\0"
    "NVXx_BMReply\0elementArray\0status\0"
    "NVXx_BMElement\0url\0code\0stamp\0contentType\0body\0"
    "NVXx_BMNode\0name\0id\0packedArray\0plainArray\0childArray\0title\0"
    "BMKind\0A\0B\0C\0D",
};
static_assert(offsetof(Tables, names) == PBNamesOffset(kTables.header));

constinit PBFile file_;

}  // namespace

const PBFile& NVXx_BMShapesRoot::file() { return file_.opened(&kTables.header, nullptr); }

}  // namespace nvxcore
