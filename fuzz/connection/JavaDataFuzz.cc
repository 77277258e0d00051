// The data streams: any bytes, read by a script that the bytes themselves give, end in values or in the one
// exception.

#include <cstdlib>
#include <string>

#include "nvxcore/connection/DASHDataInputProvider.h"
#include "nvxcore/connection/java_data/JavaDataInput.h"
#include "nvxcore/connection/java_data/JavaDataOutput.h"
#include "nvxcore/platform/Console.h"
#include "nvxcore/platform/Exception.h"

namespace {

using namespace nvxcore;
using namespace nvxcore::utils;

void check(bool held) {
  if (!held) std::abort();
}

/// Reads by the script until bytes run out; answers a digest of all that was read.
std::string readAll(JavaDataInput input, std::string_view script) {
  std::string digest;
  auto note = [&](auto value) { digest += std::to_string(value) + ","; };
  try {
    for (char step : script) {
      const size_t before = input.BytesConsumed();
      switch (static_cast<unsigned char>(step) % 12) {
        case 0:
          note(input.ReadShort());
          break;
        case 1:
          note(input.ReadUnsignedShort());
          break;
        case 2:
          note(input.ReadInt());
          break;
        case 3:
          note(input.ReadLong());
          break;
        case 4:
          note(input.ParseVarInt32());
          break;
        case 5:
          note(input.ParseZigZag32());
          break;
        case 6:
          note(input.ReadShorts().size());
          break;
        case 7:
          note(input.ReadUnsignedInts().size());
          break;
        case 8: {
          const std::optional<std::string> text = input.ReadUTF();
          // A string that was read is framed again, unless its modified form has grown too long.
          if (text) {
            JavaDataOutput output;
            output.WriteUTF(*text);
            PtrDataInputProvider again(output.data().bytes(), output.data().length());
            check(JavaDataInput(&again).ReadUTF() == text);
            digest += *text;
          }
          break;
        }
        case 9:
          digest += input.ReadUTF8();
          break;
        case 10:
          digest +=
              input.ReadDataOfLength(static_cast<size_t>(static_cast<uint32_t>(input.ReadInt()))).view();
          break;
        default:
          input.provider()->SkipBytes(static_cast<unsigned char>(step));
          break;
      }
      check(input.BytesConsumed() >= before);
    }
  } catch (const DataInputProvider::NotEnoughDataException&) {
    digest += "short";
  }
  return digest;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool quiet = (setConsoleLineHandler([](std::string_view) {}), true);
  check(quiet);
  if (size < 2) return 0;
  const size_t scriptLength = std::min<size_t>(data[0] % 32, size - 1);
  const std::string_view script(reinterpret_cast<const char*>(data + 1), scriptLength);
  const uint8_t* bytes = data + 1 + scriptLength;
  const size_t length = size - 1 - scriptLength;

  PtrDataInputProvider fixed(bytes, length);
  const std::string expected = readAll(JavaDataInput(&fixed), script);

  // The source for bytes that are still arriving reads the same, wherever they were cut.
  DASHDataInputProvider arriving;
  const size_t piece = 1 + data[0] / 32;
  for (size_t at = 0; at < length; at += piece)
    arriving.AddData(Data::copy(bytes + at, std::min(piece, length - at)));
  arriving.DoneAdding();
  check(readAll(JavaDataInput(&arriving), script) == expected);
  check(arriving.BytesConsumed() == fixed.BytesConsumed());

  // Any bytes are framed, or refused for their length.
  JavaDataOutput output;
  try {
    output.WriteUTF(std::string_view(reinterpret_cast<const char*>(bytes), length));
    check(output.data().length() >= 2 + length);
  } catch (const Exception& thrown) {
    check(thrown.name() == kJavaDataOutputErrorStringTooLong && output.data().empty());
  }
  return 0;
}
