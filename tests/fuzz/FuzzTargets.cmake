# The fuzz targets: for each, the libraries holding the code under test and the sources of code under test
# that lives in executables (the platform, its device simulator, the tool), compiled into the target itself.
# Included by tests/fuzz/CMakeLists.txt, which defines bcast_fuzz_target for the build at hand: libFuzzer
# binaries (clang, BCAST_FUZZ) or corpus replays in the test suite.
set(BCAST_FUZZ_SRC ${PROJECT_SOURCE_DIR}/src)

bcast_fuzz_target(rapidjson_proto LIBS tal_netcomm)
bcast_fuzz_target(broadcast_url LIBS bcast_plugin_core)
bcast_fuzz_target(platform_answer LIBS bcast_plugin_core)
bcast_fuzz_target(push_frame LIBS bcast_plugin_core)
bcast_fuzz_target(protocol_request LIBS bcast_plugin_core)
bcast_fuzz_target(web_request LIBS bcast_plugin_core Qt5::Core)
bcast_fuzz_target(audio_file LIBS bcast_voiceprocess tal_codec
  SOURCES ${BCAST_FUZZ_SRC}/tool/voice/AudioDuration.cpp)
bcast_fuzz_target(rtp_packet LIBS tal_codec tal_mediakit
  SOURCES ${BCAST_FUZZ_SRC}/platform/server/sim/audio/SpeakerDecoder.cpp)
bcast_fuzz_target(device_answer LIBS tal_devnet OpenSSL::Crypto
  SOURCES ${BCAST_FUZZ_SRC}/platform/devicesim/DigestAuth.cpp)
bcast_fuzz_target(platform_body LIBS tal_secret tal_base OpenSSL::Crypto
  SOURCES ${BCAST_FUZZ_SRC}/platform/server/json/Json.cpp ${BCAST_FUZZ_SRC}/platform/server/http/Envelope.cpp
          ${BCAST_FUZZ_SRC}/platform/server/http/Router.cpp
          ${BCAST_FUZZ_SRC}/platform/server/handlers/HandlerUtil.cpp)
