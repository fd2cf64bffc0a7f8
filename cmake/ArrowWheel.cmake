# Imports Arrow and Parquet C++. Two builds share the code:
#  - VX_ARROW=11 (the default): release 11. A system installation found by find_package wins;
#    otherwise the shared libraries and headers of the pyarrow==11.0.0 wheel that scripts/setup
#    unpacks into third_party/pyarrow, which use the pre-C++11 std::string ABI;
#  - VX_ARROW=current: the newest pyarrow wheel's libraries, which scripts/setup --arrow current
#    unpacks into third_party/pyarrow-current; they use the default ABI.
# Libraries are linked by path with an RPATH. VX_ARROW_OLD_ABI tells whether everything that
# includes Arrow's headers or ours needs -D_GLIBCXX_USE_CXX11_ABI=0.
set(VX_ARROW "11" CACHE STRING "Arrow build: 11 or current")
set_property(CACHE VX_ARROW PROPERTY STRINGS 11 current)

if(VX_ARROW STREQUAL "current")
  set(VX_ARROW_WHEEL_DIR "${PROJECT_SOURCE_DIR}/third_party/pyarrow-current"
      CACHE PATH "Unpacked newest pyarrow wheel")
  set(VX_ARROW_OLD_ABI OFF)
  # The wheel's library names carry its release (libarrow.so.2600 for 26.0).
  file(GLOB vx_arrow_candidates "${VX_ARROW_WHEEL_DIR}/libarrow.so.*")
  list(FILTER vx_arrow_candidates INCLUDE REGEX "libarrow\\.so\\.[0-9]+$")
  if(NOT vx_arrow_candidates)
    message(FATAL_ERROR "No Arrow in ${VX_ARROW_WHEEL_DIR}. Run scripts/setup --arrow current.")
  endif()
  list(GET vx_arrow_candidates 0 vx_arrow_first)
  string(REGEX REPLACE ".*\\.so\\." "" VX_ARROW_SO_VERSION "${vx_arrow_first}")
  # Since release 21 the compute functions (Cast, Take) live in a library of their own.
  set(vx_arrow_libraries arrow arrow_compute parquet)
elseif(VX_ARROW STREQUAL "11")
  set(VX_ARROW_WHEEL_DIR "${PROJECT_SOURCE_DIR}/third_party/pyarrow"
      CACHE PATH "Unpacked pyarrow==11.0.0 wheel")
  set(VX_ARROW_OLD_ABI ON)
  set(VX_ARROW_SO_VERSION 1100)
  set(vx_arrow_libraries arrow parquet)
  find_package(Arrow 11 QUIET CONFIG)
  find_package(Parquet 11 QUIET CONFIG)
  if(Arrow_FOUND AND Parquet_FOUND)
    add_library(vx::arrow ALIAS Arrow::arrow_shared)
    add_library(vx::parquet ALIAS Parquet::parquet_shared)
    return()
  endif()
else()
  message(FATAL_ERROR "VX_ARROW must be 11 or current, not '${VX_ARROW}'")
endif()

foreach(lib ${vx_arrow_libraries})
  set(path "${VX_ARROW_WHEEL_DIR}/lib${lib}.so.${VX_ARROW_SO_VERSION}")
  if(NOT EXISTS "${path}")
    message(FATAL_ERROR "Arrow not found: ${path} is missing. Run scripts/setup first.")
  endif()
  add_library(vx_${lib} SHARED IMPORTED GLOBAL)
  set_target_properties(vx_${lib} PROPERTIES
    IMPORTED_LOCATION "${path}"
    IMPORTED_SONAME "lib${lib}.so.${VX_ARROW_SO_VERSION}"
    INTERFACE_INCLUDE_DIRECTORIES "${VX_ARROW_WHEEL_DIR}/include")
  if(VX_ARROW_OLD_ABI)
    set_property(TARGET vx_${lib} PROPERTY INTERFACE_COMPILE_DEFINITIONS "_GLIBCXX_USE_CXX11_ABI=0")
  endif()
endforeach()
foreach(lib arrow parquet)
  if(NOT TARGET vx::${lib})
    add_library(vx::${lib} ALIAS vx_${lib})
  endif()
endforeach()
set_property(TARGET vx_parquet APPEND PROPERTY INTERFACE_LINK_LIBRARIES vx_arrow)
if(TARGET vx_arrow_compute)
  set_property(TARGET vx_arrow APPEND PROPERTY INTERFACE_LINK_LIBRARIES vx_arrow_compute)
endif()
