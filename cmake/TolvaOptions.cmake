# SPDX-License-Identifier: Apache-2.0
# How every target of the project is compiled: language, warnings, sanitizers, hardening.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(THREADS_PREFER_PTHREAD_FLAG ON)

include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX)

find_program(TOLVA_CCACHE ccache)
if(TOLVA_CCACHE)
  set(CMAKE_CXX_COMPILER_LAUNCHER "${TOLVA_CCACHE}")
endif()

add_library(tolva_warnings INTERFACE)
target_compile_features(tolva_warnings INTERFACE cxx_std_20)
target_compile_options(tolva_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wnon-virtual-dtor -Wold-style-cast
  -Woverloaded-virtual -Wformat=2 -Wimplicit-fallthrough
  -Wno-missing-field-initializers)  # fields that a designated initializer leaves out have their defaults
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  target_compile_options(tolva_warnings INTERFACE -Wthread-safety -Wshadow)
else()
  target_compile_options(tolva_warnings INTERFACE -Wduplicated-cond -Wlogical-op -Wshadow=local -Wuseless-cast
    -Wno-restrict)  # g++ 12 warns of overlaps in the sum of two strings that cannot be: https://gcc.gnu.org/PR105651
endif()

target_compile_definitions(tolva_warnings INTERFACE $<$<CONFIG:Debug>:_GLIBCXX_ASSERTIONS>)

# For programs that are never instrumented, whatever the others are.
add_library(tolva_plain_options INTERFACE)
target_link_libraries(tolva_plain_options INTERFACE tolva_warnings)
target_compile_options(tolva_plain_options INTERFACE
  $<$<CONFIG:Release>:-fstack-protector-strong;-fstack-clash-protection;-fcf-protection>
  $<$<CONFIG:Release>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>)
target_link_options(tolva_plain_options INTERFACE
  -Wl,--as-needed $<$<CONFIG:Release>:-Wl,-z,relro,-z,now,-z,noexecstack>)

add_library(tolva_options INTERFACE)
if(TOLVA_SANITIZE)
  target_link_libraries(tolva_options INTERFACE tolva_warnings)
  target_compile_options(tolva_options INTERFACE -fsanitize=${TOLVA_SANITIZE} -fno-sanitize-recover=all
                         -fno-omit-frame-pointer -O1)
  target_link_options(tolva_options INTERFACE -Wl,--as-needed -fsanitize=${TOLVA_SANITIZE})
else()
  target_link_libraries(tolva_options INTERFACE tolva_plain_options)
endif()

if(TOLVA_COVERAGE)
  target_compile_options(tolva_options INTERFACE --coverage)
  target_link_options(tolva_options INTERFACE --coverage)
endif()

# One link unit: the sources of a room as a static library, with the room's folder as the include root.
function(tolva_room name)
  file(GLOB sources CONFIGURE_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/*.cpp")
  add_library(${name} STATIC ${sources})
  target_include_directories(${name} PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/TolvaQuickLook>)
  target_link_libraries(${name} PRIVATE tolva_options)
endfunction()
