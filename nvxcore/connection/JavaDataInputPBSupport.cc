#include "nvxcore/connection/JavaDataInputPBSupport.h"

#include <cstdint>
#include <cstdlib>

#include "nvxcore/message/NVXx_PBGeneratedMessage.h"
#include "nvxcore/transport/transforms/NVXx_HTKNSDataZlib.h"

namespace nvxcore::dash {

namespace {

size_t magnitude(int32_t length) { return static_cast<size_t>(std::llabs(length)); }

}  // namespace

Data JavaDataInputPBSupport::DataForSubdata(Error* error) {
  if (error) *error = Error();
  const int32_t length = _input->ReadInt();
  const Data data = _input->ReadDataOfLength(magnitude(length));
  return length < 0 ? NVXx_htk_dataByInflatingData(data, error) : data;
}

Ref<NVXx_PBGeneratedMessage> JavaDataInputPBSupport::ReadProtocolBufferOfClass(
    const PBClass& messageClass, const NVXx_PBExtensionRegistry* registry, Error* error) {
  Error inflateError;
  const Data data = DataForSubdata(&inflateError);
  if (inflateError) {
    if (error) *error = inflateError;
    return {};
  }
  return NVXx_PBGeneratedMessage::parseFromData(messageClass, data, registry, error);
}

void JavaDataInputPBSupport::SkipSubdata() {
  const int32_t length = _input->ReadInt();
  if (length != 0) _input->provider()->SkipBytes(magnitude(length));
}

}  // namespace nvxcore::dash
