# Shared compile settings and small helpers for the project's targets.

add_library(bcast_settings INTERFACE)
target_compile_options(bcast_settings INTERFACE $<BUILD_INTERFACE:-Wall -Wextra>)
# Installed, the framework's headers keep their paths below include/bcast ("framework/base/ErrorCode.h").
target_include_directories(bcast_settings INTERFACE $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/src>
  $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/bcast>)
set_target_properties(bcast_settings PROPERTIES EXPORT_NAME headers)
# Log lines name source files relative to the repository root. Through ccache the compiler is given paths
# relative to the build directory already (CCACHE_BASEDIR), and a definition that holds the length of the
# clone's path would keep clones at other paths from sharing the cache.
if(NOT CCACHE_PROGRAM)
  string(LENGTH "${PROJECT_SOURCE_DIR}/" BCAST_SOURCE_PREFIX_LEN)
  target_compile_definitions(bcast_settings INTERFACE
    $<BUILD_INTERFACE:TAL_SOURCE_PREFIX_LEN=${BCAST_SOURCE_PREFIX_LEN}>)
endif()

if(BCAST_SANITIZE AND BCAST_TSAN)
  message(FATAL_ERROR "BCAST_SANITIZE and BCAST_TSAN cannot be combined")
endif()
if(BCAST_SANITIZE)
  set(BCAST_SAN_FLAGS -fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    # RapidJSON 1.1.0 does harmless null-pointer arithmetic in its stack that clang's UBSan reports.
    list(APPEND BCAST_SAN_FLAGS -fsanitize-ignorelist=${PROJECT_SOURCE_DIR}/tests/fuzz/ubsan_ignorelist.txt)
  endif()
  add_compile_options(${BCAST_SAN_FLAGS})
  add_link_options(${BCAST_SAN_FLAGS})
endif()
if(BCAST_TSAN)
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
  add_link_options(-fsanitize=thread)
endif()

# Environment of every test: headless Qt, ALSA limited to PulseAudio devices, known third-party leaks
# suppressed, and the source and build trees for tests that look for fixtures and programs.
set(BCAST_TEST_ENVIRONMENT
  "QT_QPA_PLATFORM=offscreen"
  "ALSA_CONFIG_PATH=${PROJECT_SOURCE_DIR}/tests/support/asound.conf"
  "LSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/tests/lsan.supp:print_suppressions=0"
  "UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1"
  "BCAST_SOURCE_DIR=${PROJECT_SOURCE_DIR}"
  "BCAST_BINARY_DIR=${PROJECT_BINARY_DIR}")

# bcast_library(NAME [STATIC] [QT] SOURCES ... DEPS ... PRIVATE_DEPS ...)
# One library per framework piece; shared by default so that singletons are process-wide. A shared one has
# the project's version as its soname version and is installed in the private library directory, where it
# finds the others beside itself. QT runs moc on the sources.
function(bcast_library name)
  cmake_parse_arguments(ARG "STATIC;QT" "" "SOURCES;DEPS;PRIVATE_DEPS" ${ARGN})
  if(ARG_STATIC)
    add_library(${name} STATIC ${ARG_SOURCES})
  else()
    add_library(${name} SHARED ${ARG_SOURCES})
    set_target_properties(${name} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}
      INSTALL_RPATH "$ORIGIN")
  endif()
  target_link_libraries(${name} PUBLIC bcast_settings ${ARG_DEPS} PRIVATE ${ARG_PRIVATE_DEPS})
  if(ARG_QT)
    set_target_properties(${name} PROPERTIES AUTOMOC ON)
  endif()
endfunction()

# bcast_test(NAME [QT] SOURCES ... DEPS ... [LABELS ...] [TIMEOUT s])
# QT tests get a main that creates a QApplication (offscreen) and runs moc on the sources.
function(bcast_test name)
  cmake_parse_arguments(ARG "QT" "TIMEOUT" "SOURCES;DEPS;LABELS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE bcast_settings ${ARG_DEPS} GTest::gtest GTest::gmock)
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests)
  if(ARG_QT)
    target_link_libraries(${name} PRIVATE bcast_qt_testmain)
    set_target_properties(${name} PROPERTIES AUTOMOC ON)
  else()
    target_link_libraries(${name} PRIVATE GTest::gtest_main)
  endif()
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 120)
  endif()
  add_test(NAME ${name} COMMAND ${name})
  set_tests_properties(${name} PROPERTIES TIMEOUT ${ARG_TIMEOUT}
    ENVIRONMENT "${BCAST_TEST_ENVIRONMENT}")
  if(ARG_LABELS)
    set_tests_properties(${name} PROPERTIES LABELS "${ARG_LABELS}")
    if("tsan" IN_LIST ARG_LABELS)
      add_dependencies(bcast_tsan_tests ${name})
    endif()
  endif()
endfunction()

# Tests that load GStreamer: the shared leak suppressions with the slow unwinder. GLib is built without frame
# pointers, so only the slow unwinder sees where its allocations come from, which the suppressions need to stay
# narrow. This entry comes after the shared LSAN_OPTIONS of bcast_test and replaces it.
function(bcast_gstreamer_test_env name)
  set_property(TEST ${name} APPEND PROPERTY ENVIRONMENT
    "LSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/tests/lsan.supp:print_suppressions=0:fast_unwind_on_malloc=0")
endfunction()
