# Installs the library as a CMake package: find_package(vantro_parquet) then link
# vantro_parquet::vantro_parquet.
include(CMakePackageConfigHelpers)

install(TARGETS vantro_parquet vxhost vxhost_logbackend
  EXPORT vantro_parquetTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY toolbox host DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  FILES_MATCHING PATTERN "*.hpp" PATTERN "*.h")

set(VX_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/vantro_parquet)
if(TARGET vx_arrow)
  # The wheel's libraries and headers, in the wheel's own layout, so that the package works
  # after the build tree and third_party/ are gone.
  set(VX_PACKAGE_ARROW_DIR ${CMAKE_INSTALL_LIBDIR}/vantro_parquet/arrow)
  foreach(lib ${vx_arrow_libraries})
    install(FILES "${VX_ARROW_WHEEL_DIR}/lib${lib}.so.${VX_ARROW_SO_VERSION}"
            DESTINATION ${VX_PACKAGE_ARROW_DIR})
  endforeach()
  install(DIRECTORY "${VX_ARROW_WHEEL_DIR}/include/arrow" "${VX_ARROW_WHEEL_DIR}/include/parquet"
          DESTINATION ${VX_PACKAGE_ARROW_DIR}/include)
endif()
install(EXPORT vantro_parquetTargets NAMESPACE vantro_parquet:: DESTINATION ${VX_PACKAGE_DIR})
if(Arrow_FOUND AND Parquet_FOUND)
  set(VX_PACKAGE_SYSTEM_ARROW ON)
else()
  set(VX_PACKAGE_SYSTEM_ARROW OFF)
endif()
configure_package_config_file(cmake/vantro_parquetConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/vantro_parquetConfig.cmake INSTALL_DESTINATION ${VX_PACKAGE_DIR})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/vantro_parquetConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/vantro_parquetConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/vantro_parquetConfigVersion.cmake
  cmake/ArrowWheel.cmake DESTINATION ${VX_PACKAGE_DIR})
