#include "tools/geoserver/messages/MessageSchema.h"

#include <algorithm>

namespace nvxcore::geoserver {

const FieldSchema* MessageSchema::find(uint32_t number) const {
  const auto found = std::find_if(fields.begin(), fields.end(),
                                  [number](const FieldSchema& field) { return field.number == number; });
  return found == fields.end() ? nullptr : &*found;
}

const FieldSchema* MessageSchema::find(std::string_view fieldName) const {
  const auto found = std::find_if(fields.begin(), fields.end(),
                                  [fieldName](const FieldSchema& field) { return field.name == fieldName; });
  return found == fields.end() ? nullptr : &*found;
}

WireType wireTypeOf(FieldKind kind) {
  switch (kind) {
    case FieldKind::int32:
    case FieldKind::int64:
    case FieldKind::uint64:
    case FieldKind::boolean:
    case FieldKind::enumeration:
      return WireType::varint;
    case FieldKind::fixed64:
      return WireType::fixed64;
    case FieldKind::sfixed32:
    case FieldKind::floating:
      return WireType::fixed32;
    case FieldKind::string:
    case FieldKind::bytes:
    case FieldKind::message:
      return WireType::bytes;
    case FieldKind::group:
      return WireType::group;
  }
  return WireType::varint;
}

namespace schemas {
namespace {

using enum FieldKind;

// What has no field here is a message whose fields are shown by number.
constexpr FieldSchema kOatcakeTokenFields[] = {{1, string, "nid"}, {2, uint64, "issue_timestamp"}};
constexpr MessageSchema kOatcakeToken{"OatcakeToken", kOatcakeTokenFields};

constexpr FieldSchema kFingerprintFields[] = {{1, string, "api_key"}, {2, string, "bundle_id"}};
constexpr MessageSchema kFingerprint{"IosAppFingerprint", kFingerprintFields};

constexpr FieldSchema kPixelDensityFields[] = {{1, int32, "orchid_density_dpi"},
                                               {2, enumeration, "ios_screen_scale"}};
constexpr MessageSchema kPixelDensity{"PixelDensity", kPixelDensityFields};

constexpr FieldSchema kClientPropertiesRequestFields[] = {
    {1, string, "cohort"},
    {2, boolean, "has_location_fix"},
    {3, int32, "mobile_country_code"},
    {4, boolean, "gzip_enabled"},
    {5, string, "application_name"},
    {6, string, "legal_country"},
    {7, boolean, "melba_cookie_enabled"},
    {8, string, "melba_nid_cookie"},
    {9, string, "sim_country_code"},
    {10, boolean, "courier_enabled"},
    {11, boolean, "brotli_enabled"},
    {17, string, "orchid_map_key"},
    {18, string, "orchid_signature"},
    {19, string, "orchid_logging_id2"},
    {20, string, "tessera_auth_token"},
    {21, boolean, "voice_search_enabled"},
    {22, enumeration, "screen_pixel_density"},
    {23, int32, "experiment_id"},
    {24, enumeration, "map_tile_cache_type"},
    {25, enumeration, "navigation_usage"},
    {26, int32, "lab_id"},
    {27, string, "os_version"},
    {28, string, "gas_cookie"},
    {29, boolean, "orchid_tablet"},
    {30, boolean, "include_mfe_debug_info"},
    {31, message, "oatcake_token", &kOatcakeToken},
    {32, boolean, "voice_cellular_device"},
    {33, boolean, "data_cellular_device"},
    {34, boolean, "china_client"},
    {35, boolean, "is_feature_test"},
    {36, boolean, "oatcake_token_enabled"},
    {37, string, "zlc_api_version"},
    {38, string, "orchid_api_token"},
    {39, string, "api_application_version"},
    {40, string, "based_on_zlc_version"},
    {42, boolean, "debug"},
    {43, message, "ios_api_app_fingerprint", &kFingerprint},
    {44, string, "current_country_override"},
    {45, boolean, "enterprise_api"},
    {47, int32, "api_harbor_services_sdk_version"},
    {48, int32, "api_harbor_services_apk_version"},
    {49, string, "device_legal_country"},
    {51, message, "pixel_density", &kPixelDensity},
    {52, int32, "expected_latency_micros"},
    {53, int64, "expected_down_throughput_bps"},
    {55, int64, "expected_up_throughput_bps"},
    {56, string, "debug_id"},
};

constexpr FieldSchema kClientPropertiesResponseFields[] = {
    {1, string, "new_cohort"},
    {2, message, "oatcake_token", &kOatcakeToken},
    {3, string, "new_legal_country"},
    {4, string, "new_melba_nid_cookie"},
    {6, int64, "request_fulfillment_time_ms"},
};

constexpr FieldSchema kClientCapabilitiesFields[] = {
    {1, int32, "max_image_width"},        {2, int32, "max_image_height"},
    {3, int32, "available_image_memory"}, {16, enumeration, "preferred_image_format"},
    {17, boolean, "html_body_only"},      {18, boolean, "embed_images"},
};
constexpr MessageSchema kClientCapabilities{"ClientCapabilities", kClientCapabilitiesFields};

constexpr FieldSchema kResourceRequestFields[] = {
    {2, fixed64, "hash"},
    {4, string, "url", nullptr, true},
    {8, message, "client_capabilities", &kClientCapabilities},
    {9, string, "referer"},
};

constexpr FieldSchema kResourceFields[] = {
    {2, string, "url", nullptr, true},          {3, int32, "response_code", nullptr, true},
    {4, fixed64, "hash", nullptr, true},        {6, bytes, "body"},
    {7, string, "content_type", nullptr, true},
};
constexpr MessageSchema kResource{"Response", kResourceFields};
constexpr FieldSchema kResourceResponseFields[] = {{1, group, "Response", &kResource}};

constexpr FieldSchema kNativeClientPropertiesFields[] = {
    {1, string, "language_code"},        {2, string, "client_platform"},
    {4, string, "distribution_channel"}, {5, string, "os_version"},
    {6, string, "application_name"},     {7, string, "api_application_version"},
    {8, string, "country_code"},         {9, floating, "dpi_ratio"},
    {10, int32, "experiment_id"},        {11, boolean, "include_copyrights"},
    {12, string, "application_version"}, {13, string, "atlas_api_version"},
    {16, string, "renderer_version"},    {17, string, "quickstyle_dir"},
};
constexpr MessageSchema kNativeClientProperties{"NativeClientProperties", kNativeClientPropertiesFields};

constexpr FieldSchema kRequestInfoFields[] = {
    {1, boolean, "opengl_es_1x_supported"},
    {2, boolean, "opengl_es_2x_supported"},
    {3, boolean, "full_base_zoom_table_supported"},
    {4, message, "paintfe_client_properties", &kNativeClientProperties},
};
constexpr MessageSchema kRequestInfo{"ClientParametersRequestInfo", kRequestInfoFields};

constexpr FieldSchema kServerSettingFields[] = {
    {1, string, "zlc_server_url"},
    {2, string, "kill_switch_content_url"},
    {3, string, "panorama_report_problem_url"},
    {4, string, "globe_tile_url"},
    {5, string, "wafer_password"},
    {6, string, "wafer_ingress_deep_link_url"},
    {7, string, "satellite_url_pattern"},
    {8, string, "mobile_atlas_grpc_url"},
};
constexpr MessageSchema kServerSetting{"ServerSettingParameters", kServerSettingFields};

constexpr FieldSchema kLoggingFields[] = {
    {1, int32, "minimum_ue3_logging_interval_seconds"},
    {2, int32, "ue3_background_send_delay_seconds"},
    {3, boolean, "enable_individual_impression_timestamps"},
    {4, int32, "event_expiration_minutes"},
    {5, int32, "max_events_saved_per_proto"},
    {6, boolean, "enable_client_visual_element"},
    {7, boolean, "enable_atlas_performance_metrics"},
    {8, boolean, "enable_client_ve_grafts"},
    {9, boolean, "enable_foxglove_performance_metrics"},
    {10, int32, "experiment_id"},
    {12, boolean, "enable_external_context_logging"},
    {15, boolean, "enable_sundial_network_logging_ue3"},
    {16, boolean, "enable_sundial_network_logging_foxglove"},
    {17, boolean, "enable_log_user_preferences_in_background"},
};
constexpr MessageSchema kLogging{"LoggingParameters", kLoggingFields};

constexpr FieldSchema kApiFields[] = {{1, boolean, "no_longer_supported"},
                                      {2, boolean, "csi_reporting_enabled"}};
constexpr MessageSchema kApi{"ApiParameters", kApiFields};

constexpr FieldSchema kPromptToRateAppFields[] = {{1, string, "rate_app_url"},
                                                  {2, int32, "minimum_time_since_first_launch_seconds"}};
constexpr MessageSchema kPromptToRateApp{"PromptToRateAppParameters", kPromptToRateAppFields};

constexpr MessageSchema kByNumber{"", {}};

constexpr FieldSchema kParameterGroupFields[] = {
    {1, enumeration, "type"},
    {2, fixed64, "hash"},
    {3, message, "navigation", &kByNumber},
    {4, message, "enable_features", &kByNumber},
    {5, message, "server_setting", &kServerSetting},
    {7, message, "tile_zoom_progression", &kByNumber},
    {10, message, "vector_maps", &kByNumber},
    {14, message, "api", &kApi},
    {16, message, "ptl_reporting", &kByNumber},
    {17, message, "emergency_menu_item", &kByNumber},
    {18, message, "logging", &kLogging},
    {21, message, "prompt_to_rate_app", &kPromptToRateApp},
    {22, message, "user_preferences_logging", &kByNumber},
    {24, message, "client_urls", &kByNumber},
    {25, message, "search", &kByNumber},
    {26, message, "place_sheet", &kByNumber},
    {28, message, "user_generated_content", &kByNumber},
    {29, message, "offline_maps", &kByNumber},
    {30, message, "tile_type_expiration", &kByNumber},
    {31, message, "partner_apps", &kByNumber},
    {33, message, "suggest", &kByNumber},
    {35, message, "odelay", &kByNumber},
    {36, message, "map_movement_requery", &kByNumber},
    {39, message, "paint_parameters", &kByNumber},
    {40, message, "text_to_speech", &kByNumber},
    {44, message, "promo", &kByNumber},
    {47, message, "imagery_viewer", &kByNumber},
    {55, message, "passive_assist", &kByNumber},
};
constexpr MessageSchema kParameterGroup{"ParameterGroup", kParameterGroupFields};

constexpr FieldSchema kClientParametersRequestFields[] = {{1, message, "parameter_group", &kParameterGroup},
                                                          {2, message, "request_info", &kRequestInfo}};
constexpr FieldSchema kClientParametersResponseFields[] = {{1, message, "parameter_group", &kParameterGroup}};

constexpr FieldSchema kLatLngFields[] = {{1, sfixed32, "latitude_e7"}, {2, sfixed32, "longitude_e7"}};
constexpr MessageSchema kLatLng{"LatLng", kLatLngFields};

constexpr FieldSchema kFeatureIdFields[] = {{1, fixed64, "cell_id"}, {2, fixed64, "fprint"}};
constexpr MessageSchema kFeatureId{"FeatureId", kFeatureIdFields};

constexpr FieldSchema kLocationDescriptorFields[] = {
    {2, enumeration, "producer"},
    {3, int64, "timestamp"},
    {4, string, "loc"},
    {5, message, "latlng", &kLatLng},
    {6, message, "latlng_span", &kLatLng},
    {7, floating, "radius"},
    {8, int32, "confidence"},
    {10, message, "feature_id", &kFeatureId},
    {11, string, "language"},
    {13, enumeration, "historical_producer"},
    {15, int32, "historical_prominence"},
    {16, uint64, "mid"},
    {17, message, "level_feature_id", &kFeatureId},
    {18, floating, "level_number"},
    {20, string, "diagnostic_info"},
};
constexpr MessageSchema kLocationDescriptor{"LocationDescriptor", kLocationDescriptorFields};

constexpr FieldSchema kUserEvent3Fields[] = {
    {1, message, "location_descriptor", &kLocationDescriptor},
    {2, int64, "raw_client_timestamp_ms"},
    {3, message, "logging_params", &kByNumber},
    {4, message, "logged_ue3", &kByNumber},
    {5, string, "client_event_id"},
    {6, message, "visual_element", &kByNumber},
    {17, message, "prefetch_upgrade", &kByNumber},
    {19, message, "personalization_event", &kByNumber},
    {20, message, "viewport_update", &kByNumber},
};
constexpr MessageSchema kUserEvent3{"UserEvent3", kUserEvent3Fields};
constexpr FieldSchema kUserEvent3RequestFields[] = {{1, message, "event", &kUserEvent3},
                                                    {2, int64, "client_send_timestamp_ms"}};

}  // namespace

constinit const MessageSchema unknown = kByNumber;
constinit const MessageSchema clientPropertiesRequest{"ClientPropertiesRequest",
                                                      kClientPropertiesRequestFields};
constinit const MessageSchema clientPropertiesResponse{"ClientPropertiesResponse",
                                                       kClientPropertiesResponseFields};
constinit const MessageSchema resourceRequest{"ResourceRequest", kResourceRequestFields};
constinit const MessageSchema resourceResponse{"ResourceResponse", kResourceResponseFields};
constinit const MessageSchema clientParametersRequest{"ClientParametersRequest",
                                                      kClientParametersRequestFields};
constinit const MessageSchema clientParametersResponse{"ClientParametersResponse",
                                                       kClientParametersResponseFields};
constinit const MessageSchema parameterGroup = kParameterGroup;
constinit const MessageSchema userEvent3Request{"UserEvent3Request", kUserEvent3RequestFields};
constinit const MessageSchema userEvent3Response{"UserEvent3Response", {}};
constinit const MessageSchema locationDescriptor = kLocationDescriptor;

}  // namespace schemas
}  // namespace nvxcore::geoserver
