#include "nvxcore/message/NVXx_PBUnknownFieldSet.h"
#include "nvxcore/message/schema/client_parameters.pb.h"
#include "nvxcore/message/schema/client_properties.pb.h"
#include "nvxcore/message/schema/log_request.pb.h"
#include "nvxcore/message/schema/rect.pb.h"
#include "nvxcore/message/schema/resource.pb.h"
#include "nvxcore/message/schema/user_event3.pb.h"
#include "tests/message/MessageTest.h"
#include "tests/message/schema/sibling.pb.h"

// Messages of the library's own schemas in use.

namespace nvxcore {
namespace {

using sibling::SBLSiblingRoot;
using testing::bytesOf;
using testing::goldenBytes;
using testing::toHex;
using SchemaTest = testing::MessageTest;

TEST_F(SchemaTest, ResourcesComeAsGroups) {
  const std::string bytes = goldenBytes("resource-response.hex");
  const auto response = NVXx_ZLCResourceResponseProto::parseFromData(Data::copy(bytes));
  ASSERT_EQ(response->responseArray().count(), 2U);
  const auto& first = response->responseArray().messageAtIndex<NVXx_ZLCResourceResponseProto_Response>(0);
  EXPECT_EQ(first.url(), "a/b");
  EXPECT_EQ(first.responseCode(), 200);
  EXPECT_EQ(first.hash_p(), 0x0102030405060708U);
  EXPECT_EQ(toHex(first.body()), "00 FF");
  auto& second = response->responseArray().messageAtIndex<NVXx_ZLCResourceResponseProto_Response>(1);
  EXPECT_TRUE(second.hasContentType() && !second.hasBody());
  EXPECT_EQ(toHex(response->data().view()), toHex(bytes));
  EXPECT_TRUE(response->isInitialized());
  second.setHasContentType(false);
  EXPECT_FALSE(response->isInitialized());
}

TEST_F(SchemaTest, ParametersKeepTheGroupsThatNothingHereReads) {
  const std::string bytes = goldenBytes("client-parameters-response.hex");
  const auto response = NVXx_ZLCClientParametersResponseProto::parseFromData(Data::copy(bytes));
  ASSERT_EQ(response->parameterGroupArray().count(), 3U);
  const auto group = [&](size_t i) {
    return &response->parameterGroupArray().messageAtIndex<NVXx_ZLCParameterGroupProto>(i);
  };
  const NVXx_ZLCLoggingParametersProto& logging = group(0)->logging();
  EXPECT_EQ(logging.minimumUe3LoggingIntervalSeconds(), 30);
  EXPECT_EQ(logging.eventExpirationMinutes(), 0);
  EXPECT_EQ(logging.maxEventsSavedPerProto(), 10);
  EXPECT_EQ(logging.experimentIdArray().int32AtIndex(1), 44);
  EXPECT_TRUE(logging.enableLogUserPreferencesInBackground() && logging.enableFoxglovePerformanceMetrics());
  EXPECT_EQ(group(1)->hash_p(), UINT64_MAX);
  EXPECT_EQ(group(1)->enableFeatures().unknownFields()->countOfFields(), 2U);
  EXPECT_FALSE(group(2)->hasHash_p() || group(2)->hasServerSetting());
  EXPECT_EQ(toHex(response->data().view()), toHex(bytes));
  // A type that nobody knows is kept, and the group stays of type 0.
  const auto other = NVXx_ZLCParameterGroupProto::parseFromData(bytesOf("08 55"));
  EXPECT_TRUE(!other->hasType() && other->type() == 0);
  EXPECT_EQ(toHex(other->data().view()), "08 55");
}

TEST_F(SchemaTest, SiblingsExtendUserEvents) {
  const std::string bytes = goldenBytes("user-event.hex");
  const auto request = NVXx_ZLCUserEvent3RequestProto::message();
  const auto event = NVXx_ZLCUserEvent3::message();
  request->eventArray().addObject(event);
  request->setClientSendTimestampMs(1000);
  event->setExtension(SBLSiblingRoot::note(), "note");
  event->setClientEventId("x:1");
  event->loggedUe3().userInteraction().setAction(ZLCAction(20));
  event->loggedUe3().userInteraction().params().setAd(NVXx_LOGZLCAdParams::message());
  const auto element = NVXx_LOGVisualElementLiteProto::message();
  element->setExtension(SBLSiblingRoot::column(), 5);
  element->setExtension(SBLSiblingRoot::row(), 9);
  element->setUiType(7);
  element->midArray().addObject(NVXx_PBString("m"));
  event->loggingParams().setEi("e");
  event->loggingParams().clientVeTreeArray().addObject(element);
  event->loggingParams().otherUserActionsArray().addInt32(1);
  event->loggingParams().otherUserActionsArray().addInt32(38);
  EXPECT_EQ(toHex(request->data().view()), toHex(bytes));

  const auto again =
      NVXx_ZLCUserEvent3RequestProto::parseFromData(Data::copy(bytes), &SBLSiblingRoot::extensionRegistry());
  EXPECT_TRUE(again->isEqual(request.get()));
  EXPECT_EQ(
      again->eventArray().messageAtIndex<NVXx_ZLCUserEvent3>(0).getExtension(SBLSiblingRoot::note()).view(),
      "note");
  // Whoever does not know the sibling hands on what it put in.
  const auto plain = NVXx_ZLCUserEvent3RequestProto::parseFromData(Data::copy(bytes));
  EXPECT_EQ(plain->serializedSize(), bytes.size());
  EXPECT_TRUE(
      NVXx_ZLCUserEvent3RequestProto::parseFromData(plain->data(), &SBLSiblingRoot::extensionRegistry())
          ->isEqual(request.get()));
}

TEST_F(SchemaTest, DefaultsAreReadAndNotWritten) {
  const auto properties = NVXx_ZLCClientPropertiesRequestProto::message();
  EXPECT_TRUE(properties->voiceCellularDevice() && !properties->gzipEnabled() && !properties->debug());
  EXPECT_EQ(properties->screenPixelDensity(), 1);
  const auto log = NVXx_LogRequest::message();
  EXPECT_EQ(log->logSource(), -1);
  EXPECT_EQ(NVXx_LogEvent::message()->timezoneOffsetSeconds(), 180000);
  EXPECT_EQ(NVXx_LogResponse::message()->nextRequestWaitMillis(), -1);
  const auto settings = NVXx_ZLCServerSettingParametersProto::message();
  EXPECT_EQ(settings->globeTileUrl(), "https://globe.example.com/tiles");
  EXPECT_EQ(settings->globeTileUrl_handle().view(), settings->globeTileUrl());
  EXPECT_TRUE(settings->zlcServerUrl().empty() && !settings->hasGlobeTileUrl());
  EXPECT_EQ(settings->serializedSize() + properties->serializedSize() + log->serializedSize(), 0U);
  // A default that is set is written.
  log->setLogSource(LogRequest_LogSource(-1));
  EXPECT_EQ(toHex(log->data().view()), "10 FF FF FF FF 0F");
}

TEST_F(SchemaTest, RootsAreCalledByTheirFiles) {
  EXPECT_STREQ(NVXx_ZLCClientParametersRoot::file().rootName(), "NVXx_ZLCClientParametersRoot");
  EXPECT_STREQ(NVXx_GSRectRoot::file().rootName(), "NVXx_GSRectRoot");
  EXPECT_EQ(NVXx_GSRectRoot::extensionNamed("any"), nullptr);
}

}  // namespace
}  // namespace nvxcore
