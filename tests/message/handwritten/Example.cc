#include "tests/message/handwritten/Example.h"

#include <cstddef>

namespace nvxcore {
namespace {

constexpr struct Tables {
  PBFileHeader header;
  PBMessageEntry messages[11];
  PBFieldEntry fields[84];
  PBSideEntry sides[35];
  PBRangeEntry ranges[3];
  PBEnumEntry enums[2];
  PBExtensionEntry extensions[58];
  int32_t numbers[11];
  char names[2809];
  char bytes[139];
} kTables = {
    {kPBTableFormat, 11, 2, 58, 3, 0, 84, 35, 11, 2809, 138},
    {{19, 0, 0, 5, 2, 0, 0, 40, 0},
     {71, 5, 2, 18, 3, 0, 0, 120, 0},
     {210, 23, 5, 3, 1, 0, 0, 24, 0},
     {244, 26, 6, 18, 3, 0, 0, 152, 0},
     {473, 44, 9, 14, 1, 0, 0, 120, 0},
     {656, 58, 10, 19, 21, 0, 0, 120, 0},
     {803, 77, 31, 2, 0, 0, 2, 16, 0},
     {832, 79, 31, 0, 0, 2, 1, 0, PBMessageIsMessageSet},
     {850, 79, 31, 2, 1, 3, 0, 24, 0},
     {871, 81, 32, 0, 0, 3, 0, 0, 0},
     {884, 81, 32, 3, 3, 3, 0, 32, 0}},
    {{1, 0, 4, NVXx_PBType::Int32, 0},
     {2, 1, 8, NVXx_PBType::String, 0},
     {3, 2, 16, NVXx_PBType::Message, 0},
     {4, 3, 24, NVXx_PBType::Int32, PBFieldRepeated | PBFieldPacked},
     {5, 4, 32, NVXx_PBType::Message, PBFieldRepeated},
     {1, 0, 4, NVXx_PBType::Bool, 0},
     {2, 1, 8, NVXx_PBType::Fixed32, 0},
     {3, 2, 12, NVXx_PBType::SFixed32, 0},
     {4, 3, 16, NVXx_PBType::Float, 0},
     {5, 4, 40, NVXx_PBType::Fixed64, 0},
     {6, 5, 48, NVXx_PBType::SFixed64, 0},
     {7, 6, 56, NVXx_PBType::Double, 0},
     {8, 7, 20, NVXx_PBType::Int32, 0},
     {9, 8, 64, NVXx_PBType::Int64, 0},
     {10, 9, 24, NVXx_PBType::SInt32, 0},
     {11, 10, 72, NVXx_PBType::SInt64, 0},
     {12, 11, 28, NVXx_PBType::UInt32, 0},
     {13, 12, 80, NVXx_PBType::UInt64, 0},
     {14, 13, 88, NVXx_PBType::Data, 0},
     {15, 14, 96, NVXx_PBType::String, 0},
     {16, 15, 104, NVXx_PBType::Message, 0},
     {17, 16, 112, NVXx_PBType::Group, 0},
     {18, 17, 32, NVXx_PBType::Enum, PBFieldEnumDescriptor},
     {1, 0, 4, NVXx_PBType::Int32, 0},
     {2, 1, 8, NVXx_PBType::Int32, 0},
     {3, 2, 16, NVXx_PBType::Group, 0},
     {1, 0, 8, NVXx_PBType::Bool, PBFieldRepeated},
     {2, 1, 16, NVXx_PBType::Fixed32, PBFieldRepeated},
     {3, 2, 24, NVXx_PBType::SFixed32, PBFieldRepeated},
     {4, 3, 32, NVXx_PBType::Float, PBFieldRepeated},
     {5, 4, 40, NVXx_PBType::Fixed64, PBFieldRepeated},
     {6, 5, 48, NVXx_PBType::SFixed64, PBFieldRepeated},
     {7, 6, 56, NVXx_PBType::Double, PBFieldRepeated},
     {8, 7, 64, NVXx_PBType::Int32, PBFieldRepeated},
     {9, 8, 72, NVXx_PBType::Int64, PBFieldRepeated},
     {10, 9, 80, NVXx_PBType::SInt32, PBFieldRepeated},
     {11, 10, 88, NVXx_PBType::SInt64, PBFieldRepeated},
     {12, 11, 96, NVXx_PBType::UInt32, PBFieldRepeated},
     {13, 12, 104, NVXx_PBType::UInt64, PBFieldRepeated},
     {14, 13, 112, NVXx_PBType::Data, PBFieldRepeated},
     {15, 14, 120, NVXx_PBType::String, PBFieldRepeated},
     {16, 15, 128, NVXx_PBType::Message, PBFieldRepeated},
     {17, 16, 136, NVXx_PBType::Group, PBFieldRepeated},
     {18, 17, 144, NVXx_PBType::Enum, PBFieldRepeated | PBFieldEnumDescriptor},
     {1, 0, 8, NVXx_PBType::Bool, PBFieldRepeated | PBFieldPacked},
     {2, 1, 16, NVXx_PBType::Fixed32, PBFieldRepeated | PBFieldPacked},
     {3, 2, 24, NVXx_PBType::SFixed32, PBFieldRepeated | PBFieldPacked},
     {4, 3, 32, NVXx_PBType::Float, PBFieldRepeated | PBFieldPacked},
     {5, 4, 40, NVXx_PBType::Fixed64, PBFieldRepeated | PBFieldPacked},
     {6, 5, 48, NVXx_PBType::SFixed64, PBFieldRepeated | PBFieldPacked},
     {7, 6, 56, NVXx_PBType::Double, PBFieldRepeated | PBFieldPacked},
     {8, 7, 64, NVXx_PBType::Int32, PBFieldRepeated | PBFieldPacked},
     {9, 8, 72, NVXx_PBType::Int64, PBFieldRepeated | PBFieldPacked},
     {10, 9, 80, NVXx_PBType::SInt32, PBFieldRepeated | PBFieldPacked},
     {11, 10, 88, NVXx_PBType::SInt64, PBFieldRepeated | PBFieldPacked},
     {12, 11, 96, NVXx_PBType::UInt32, PBFieldRepeated | PBFieldPacked},
     {13, 12, 104, NVXx_PBType::UInt64, PBFieldRepeated | PBFieldPacked},
     {18, 13, 112, NVXx_PBType::Enum, PBFieldRepeated | PBFieldPacked | PBFieldEnumDescriptor},
     {1, 0, 8, NVXx_PBType::Bool, PBFieldHasDefault},
     {2, 1, 12, NVXx_PBType::Int32, PBFieldHasDefault},
     {3, 2, 48, NVXx_PBType::Int64, PBFieldHasDefault},
     {4, 4, 56, NVXx_PBType::UInt64, PBFieldHasDefault},
     {5, 5, 16, NVXx_PBType::Float, PBFieldHasDefault},
     {6, 6, 64, NVXx_PBType::Double, PBFieldHasDefault | PBFieldTextFormat},
     {7, 7, 72, NVXx_PBType::String, PBFieldHasDefault},
     {8, 8, 80, NVXx_PBType::Data, PBFieldHasDefault},
     {9, 9, 20, NVXx_PBType::UInt32, PBFieldHasDefault | PBFieldTextFormat},
     {10, 10, 24, NVXx_PBType::Enum, PBFieldEnumDescriptor | PBFieldHasDefault},
     {11, 11, 28, NVXx_PBType::Int32, 0},
     {12, 12, 32, NVXx_PBType::Int32, PBFieldHasDefault},
     {13, 13, 88, NVXx_PBType::String, PBFieldHasDefault},
     {14, 14, 36, NVXx_PBType::Int32, PBFieldRequired},
     {15, 15, 96, NVXx_PBType::Enum, PBFieldRepeated},
     {16, 16, 40, NVXx_PBType::Enum, PBFieldEnumDescriptor | PBFieldHasDefault},
     {17, 17, 104, NVXx_PBType::String, PBFieldRepeated},
     {0, 40, 112, NVXx_PBType::SInt64, PBFieldWideNumber | PBFieldHasDefault},
     {0, 20, 44, NVXx_PBType::Int32, PBFieldWideNumber},
     {1, 0, 4, NVXx_PBType::Int32, 0},
     {200, 1, 8, NVXx_PBType::Int32, 0},
     {1, 0, 8, NVXx_PBType::String, 0},
     {2, 1, 16, NVXx_PBType::Message, 0},
     {1, 0, 8, NVXx_PBType::Message, 0},
     {2, 1, 16, NVXx_PBType::Message, 0},
     {3, 2, 24, NVXx_PBType::Message, 0}},
    {{2, PBSideClass, 0},
     {4, PBSideClass, 0},
     {15, PBSideClass, 0},
     {16, PBSideClass, 2},
     {17, PBSideEnum, 0},
     {2, PBSideClass, 2},
     {15, PBSideClass, 0},
     {16, PBSideClass, 2},
     {17, PBSideEnum, 0},
     {13, PBSideEnum, 0},
     {0, PBSideDefault, 1},
     {1, PBSideDefault, 0xFFFFFFF9},
     {2, PBSideDefault, 0},
     {3, PBSideDefault, 8},
     {4, PBSideDefault, 2139095040},
     {5, PBSideDefault, 16},
     {6, PBSideDefault, 24},
     {7, PBSideDefault, 48},
     {8, PBSideDefault, 0xEE6B2800},
     {9, PBSideEnum, 0},
     {9, PBSideDefault, 0xFFFFFFFE},
     {12, PBSideDefault, 56},
     {14, PBSideEnum, 1},
     {15, PBSideEnum, 1},
     {15, PBSideDefault, 1},
     {16, PBSideOptions, 60},
     {17, PBSideNumber, 70000},
     {17, PBSideDefault, 68},
     {18, PBSideNumber, 536870911},
     {PBSideOfMessage, PBSideTextFormat, 76},
     {PBSideOfMessage, PBSideNestedEnum, 1},
     {1, PBSideClass, 7},
     {0, PBSideClass, 6},
     {1, PBSideClass, 7},
     {2, PBSideClass, 5}},
    {{100, 200}, {1000, 536870912}, {4, 2147483647}},
    {{922, 0, 99, 5, 0, PBEnumHasNames, 0}, {971, 5, PBNone, 0, 3, 0, 0}},
    {{978, 100, 0, 6, 0, 0, NVXx_PBType::Bool, 0},
     {1005, 101, 0, 6, 0, 0, NVXx_PBType::Fixed32, 0},
     {1035, 102, 0, 6, 0, 0, NVXx_PBType::SFixed32, 0},
     {1066, 103, 0, 6, 0, 0, NVXx_PBType::Float, 0},
     {1094, 104, 0, 6, 0, 0, NVXx_PBType::Fixed64, 0},
     {1124, 105, 0, 6, 0, 0, NVXx_PBType::SFixed64, 0},
     {1155, 106, 0, 6, 0, 0, NVXx_PBType::Double, 0},
     {1184, 107, 0, 6, 0, 0, NVXx_PBType::Int32, 0},
     {1212, 108, 0, 6, 0, 0, NVXx_PBType::Int64, 0},
     {1240, 109, 0, 6, 0, 0, NVXx_PBType::SInt32, 0},
     {1269, 110, 0, 6, 0, 0, NVXx_PBType::SInt64, 0},
     {1298, 111, 0, 6, 0, 0, NVXx_PBType::UInt32, 0},
     {1327, 112, 0, 6, 0, 0, NVXx_PBType::UInt64, 0},
     {1356, 113, 0, 6, 0, 0, NVXx_PBType::Data, 0},
     {1383, 114, 0, 6, 0, 0, NVXx_PBType::String, 0},
     {1412, 115, 0, 6, 0, 0, NVXx_PBType::Message, 0},
     {1442, 116, 0, 6, 2, 0, NVXx_PBType::Group, 0},
     {1470, 117, 0, 6, 0, 0, NVXx_PBType::Enum, 0},
     {1497, 120, 0, 6, 0, PBExtensionRepeated, NVXx_PBType::Bool, 0},
     {1529, 121, 0, 6, 0, PBExtensionRepeated, NVXx_PBType::Fixed32, 0},
     {1564, 122, 0, 6, 0, PBExtensionRepeated, NVXx_PBType::SFixed32, 0},
     {1600, 123, 0, 6, 0, PBExtensionRepeated, NVXx_PBType::Float, 0},
     {1633, 124, 0, 6, 0, PBExtensionRepeated, NVXx_PBType::Fixed64, 0},
     {1668, 125, 0, 6, 0, PBExtensionRepeated, NVXx_PBType::SFixed64, 0},
     {1704, 126, 0, 6, 0, PBExtensionRepeated, NVXx_PBType::Double, 0},
     {1738, 127, 0, 6, 0, PBExtensionRepeated, NVXx_PBType::Int32, 0},
     {1771, 128, 0, 6, 0, PBExtensionRepeated, NVXx_PBType::Int64, 0},
     {1804, 129, 0, 6, 0, PBExtensionRepeated, NVXx_PBType::SInt32, 0},
     {1838, 130, 0, 6, 0, PBExtensionRepeated, NVXx_PBType::SInt64, 0},
     {1872, 131, 0, 6, 0, PBExtensionRepeated, NVXx_PBType::UInt32, 0},
     {1906, 132, 0, 6, 0, PBExtensionRepeated, NVXx_PBType::UInt64, 0},
     {1940, 133, 0, 6, 0, PBExtensionRepeated, NVXx_PBType::Data, 0},
     {1972, 134, 0, 6, 0, PBExtensionRepeated, NVXx_PBType::String, 0},
     {2006, 135, 0, 6, 0, PBExtensionRepeated, NVXx_PBType::Message, 0},
     {2041, 136, 0, 6, 2, PBExtensionRepeated, NVXx_PBType::Group, 0},
     {2074, 137, 0, 6, 0, PBExtensionRepeated, NVXx_PBType::Enum, 0},
     {2106, 140, 0, 6, 0, PBExtensionRepeated | PBExtensionPacked, NVXx_PBType::Bool, 0},
     {2139, 141, 0, 6, 0, PBExtensionRepeated | PBExtensionPacked, NVXx_PBType::Fixed32, 0},
     {2175, 142, 0, 6, 0, PBExtensionRepeated | PBExtensionPacked, NVXx_PBType::SFixed32, 0},
     {2212, 143, 0, 6, 0, PBExtensionRepeated | PBExtensionPacked, NVXx_PBType::Float, 0},
     {2246, 144, 0, 6, 0, PBExtensionRepeated | PBExtensionPacked, NVXx_PBType::Fixed64, 0},
     {2282, 145, 0, 6, 0, PBExtensionRepeated | PBExtensionPacked, NVXx_PBType::SFixed64, 0},
     {2319, 146, 0, 6, 0, PBExtensionRepeated | PBExtensionPacked, NVXx_PBType::Double, 0},
     {2354, 147, 0, 6, 0, PBExtensionRepeated | PBExtensionPacked, NVXx_PBType::Int32, 0},
     {2388, 148, 0, 6, 0, PBExtensionRepeated | PBExtensionPacked, NVXx_PBType::Int64, 0},
     {2422, 149, 0, 6, 0, PBExtensionRepeated | PBExtensionPacked, NVXx_PBType::SInt32, 0},
     {2457, 150, 0, 6, 0, PBExtensionRepeated | PBExtensionPacked, NVXx_PBType::SInt64, 0},
     {2492, 151, 0, 6, 0, PBExtensionRepeated | PBExtensionPacked, NVXx_PBType::UInt32, 0},
     {2527, 152, 0, 6, 0, PBExtensionRepeated | PBExtensionPacked, NVXx_PBType::UInt64, 0},
     {2562, 157, 0, 6, 0, PBExtensionRepeated | PBExtensionPacked, NVXx_PBType::Enum, 0},
     {2595, 170, 116, 6, 0, PBExtensionHasDefault, NVXx_PBType::String, 0},
     {2622, 171, 124, 6, 0, PBExtensionHasDefault, NVXx_PBType::Data, 0},
     {2649, 172, 130, 6, 0, PBExtensionHasDefault, NVXx_PBType::Int64, 0},
     {2675, 173, 1, 6, 0, PBExtensionHasDefault, NVXx_PBType::Enum, 0},
     {2702, 1000, 0, 6, 8, 0, NVXx_PBType::Message, 0},
     {2719, 1000, 0, 7, 8, PBExtensionMessageSet, NVXx_PBType::Message, 0},
     {2751, 1001, 0, 7, 0, PBExtensionMessageSet, NVXx_PBType::Message, 0},
     {2781, 1002, 0, 7, 7, PBExtensionMessageSet, NVXx_PBType::Message, 0}},
    {0, 1, -2, 3, 1, -5, -1, 1, 3, 100, 100},
    "NVXx_EXExampleRoot\0"
    "NVXx_EXChild\0value\0label\0child\0stepArray\0childArray\0"
    "NVXx_"
    "EXSingular\0flag\0fixed32\0sFixed32\0ratio\0fixed64\0sFixed64\0measure\0int32\0int64\0sInt32\0sInt64\0uI"
    "nt32\0uInt64\0bytes\0text\0child\0corner\0color\0"
    "NVXx_EXSingular_Corner\0x\0y\0corner\0"
    "NVXx_"
    "EXRepeated\0flagArray\0fixed32Array\0sFixed32Array\0ratioArray\0fixed64Array\0sFixed64Array\0measureArra"
    "y\0int32Array\0int64Array\0sInt32Array\0sInt64Array\0uInt32Array\0uInt64Array\0bytesArray\0textArray\0ch"
    "ildArray\0cornerArray\0colorArray\0"
    "NVXx_"
    "EXPacked\0flagArray\0fixed32Array\0sFixed32Array\0ratioArray\0fixed64Array\0sFixed64Array\0measureArray"
    "\0int32Array\0int64Array\0sInt32Array\0sInt64Array\0uInt32Array\0uInt64Array\0colorArray\0"
    "NVXx_EXDefaults\0flag\0small\0big\0huge\0ratio\0openglEs1XSupported\0name\0blob\0oddName\0color\0hash_"
    "p\0zero\0emptyName\0id_p\0codeArray\0code\0pieceArray\0mid\0far\0"
    "NVXx_EXExtendable\0first\0last\0"
    "NVXx_EXMessageSet\0"
    "NVXx_EXItem\0note\0set\0"
    "NVXx_EXEmpty\0"
    "NVXx_EXHolder\0extendable\0set\0defaults\0"
    "EXColor\0Red\0Green\0DarkBlue\0StringPiece\0AlsoGreen\0"
    "EXCode\0"
    "NVXx_EXExampleRoot_extBool\0"
    "NVXx_EXExampleRoot_extFixed32\0"
    "NVXx_EXExampleRoot_extSFixed32\0"
    "NVXx_EXExampleRoot_extFloat\0"
    "NVXx_EXExampleRoot_extFixed64\0"
    "NVXx_EXExampleRoot_extSFixed64\0"
    "NVXx_EXExampleRoot_extDouble\0"
    "NVXx_EXExampleRoot_extInt32\0"
    "NVXx_EXExampleRoot_extInt64\0"
    "NVXx_EXExampleRoot_extSInt32\0"
    "NVXx_EXExampleRoot_extSInt64\0"
    "NVXx_EXExampleRoot_extUInt32\0"
    "NVXx_EXExampleRoot_extUInt64\0"
    "NVXx_EXExampleRoot_extData\0"
    "NVXx_EXExampleRoot_extString\0"
    "NVXx_EXExampleRoot_extMessage\0"
    "NVXx_EXExampleRoot_extGroup\0"
    "NVXx_EXExampleRoot_extEnum\0"
    "NVXx_EXExampleRoot_extBoolArray\0"
    "NVXx_EXExampleRoot_extFixed32Array\0"
    "NVXx_EXExampleRoot_extSFixed32Array\0"
    "NVXx_EXExampleRoot_extFloatArray\0"
    "NVXx_EXExampleRoot_extFixed64Array\0"
    "NVXx_EXExampleRoot_extSFixed64Array\0"
    "NVXx_EXExampleRoot_extDoubleArray\0"
    "NVXx_EXExampleRoot_extInt32Array\0"
    "NVXx_EXExampleRoot_extInt64Array\0"
    "NVXx_EXExampleRoot_extSInt32Array\0"
    "NVXx_EXExampleRoot_extSInt64Array\0"
    "NVXx_EXExampleRoot_extUInt32Array\0"
    "NVXx_EXExampleRoot_extUInt64Array\0"
    "NVXx_EXExampleRoot_extDataArray\0"
    "NVXx_EXExampleRoot_extStringArray\0"
    "NVXx_EXExampleRoot_extMessageArray\0"
    "NVXx_EXExampleRoot_extGroupArray\0"
    "NVXx_EXExampleRoot_extEnumArray\0"
    "NVXx_EXExampleRoot_extBoolPacked\0"
    "NVXx_EXExampleRoot_extFixed32Packed\0"
    "NVXx_EXExampleRoot_extSFixed32Packed\0"
    "NVXx_EXExampleRoot_extFloatPacked\0"
    "NVXx_EXExampleRoot_extFixed64Packed\0"
    "NVXx_EXExampleRoot_extSFixed64Packed\0"
    "NVXx_EXExampleRoot_extDoublePacked\0"
    "NVXx_EXExampleRoot_extInt32Packed\0"
    "NVXx_EXExampleRoot_extInt64Packed\0"
    "NVXx_EXExampleRoot_extSInt32Packed\0"
    "NVXx_EXExampleRoot_extSInt64Packed\0"
    "NVXx_EXExampleRoot_extUInt32Packed\0"
    "NVXx_EXExampleRoot_extUInt64Packed\0"
    "NVXx_EXExampleRoot_extEnumPacked\0"
    "NVXx_EXExampleRoot_extName\0"
    "NVXx_EXExampleRoot_extBlob\0"
    "NVXx_EXExampleRoot_extBig\0"
    "NVXx_EXExampleRoot_extTint\0"
    "NVXx_EXItem_item\0"
    "NVXx_EXItem_messageSetExtension\0"
    "NVXx_EXExampleRoot_childInSet\0"
    "NVXx_EXExampleRoot_setInSet",
    "\000\000\000\000\000\000\000\200"
    "\377\377\377\377\377\377\377\377"
    "\000\000\000\000\000\000\370\077"
    "\000\000\000\024quote \" and \303\251, tab\011"
    "\000\000\000\004\000\001\377\077"
    "\000\000\000\000"
    "\000\000\000\004\010\002\030\001"
    "\375\377\377\377\377\377\377\377"
    "\000\000\000\023\002\006\006\242\201!\251\000\011\000odd_NAME\000"
    "\000\000\000\015\001\004\000alsoGREEN\000"
    "\000\000\000\004none"
    "\000\000\000\002\000\177"
    "\373\377\377\377\377\377\377\377",
};
static_assert(offsetof(Tables, names) == PBNamesOffset(kTables.header));

constinit PBFile file_;

}  // namespace

const PBFile& NVXx_EXExampleRoot::file() { return file_.opened(&kTables.header, nullptr); }

}  // namespace nvxcore
