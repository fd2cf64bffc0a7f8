# Imports Arrow and Parquet C++ 11. A system installation found by find_package wins; otherwise
# the shared libraries and headers carried by the pyarrow==11.0.0 wheel that scripts/setup unpacks
# into third_party/pyarrow are used, linked by path with an RPATH.
set(VX_ARROW_WHEEL_DIR "${PROJECT_SOURCE_DIR}/third_party/pyarrow"
    CACHE PATH "Unpacked pyarrow==11.0.0 wheel")

find_package(Arrow 11 QUIET CONFIG)
find_package(Parquet 11 QUIET CONFIG)
if(Arrow_FOUND AND Parquet_FOUND)
  add_library(vx::arrow ALIAS Arrow::arrow_shared)
  add_library(vx::parquet ALIAS Parquet::parquet_shared)
  return()
endif()

foreach(lib arrow parquet)
  set(path "${VX_ARROW_WHEEL_DIR}/lib${lib}.so.1100")
  if(NOT EXISTS "${path}")
    message(FATAL_ERROR "Arrow 11 not found: ${path} is missing. Run scripts/setup first.")
  endif()
  add_library(vx_${lib} SHARED IMPORTED GLOBAL)
  set_target_properties(vx_${lib} PROPERTIES
    IMPORTED_LOCATION "${path}"
    IMPORTED_SONAME "lib${lib}.so.1100"
    INTERFACE_INCLUDE_DIRECTORIES "${VX_ARROW_WHEEL_DIR}/include"
    # The wheel is built with the pre-C++11 std::string ABI.
    INTERFACE_COMPILE_DEFINITIONS "_GLIBCXX_USE_CXX11_ABI=0")
  add_library(vx::${lib} ALIAS vx_${lib})
endforeach()
set_property(TARGET vx_parquet APPEND PROPERTY INTERFACE_LINK_LIBRARIES vx_arrow)
