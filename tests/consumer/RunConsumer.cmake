# Script mode: install, configure, build and run the consumer; any failing step fails the test.
function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "failed (${result}): ${ARGN}\n${out}\n${err}")
  endif()
  set(last_output "${out}" PARENT_SCOPE)
endfunction()

# A sanitized library needs its runtime loaded first: the consumer links it too.
set(sanitize_flags)
if(SANITIZE)
  set(sanitize_flags -DCMAKE_EXE_LINKER_FLAGS=-fsanitize=${SANITIZE})
endif()

file(REMOVE_RECURSE ${WORK_DIR})
run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${WORK_DIR}/prefix)

# The installed package stands alone: neither its CMake files nor its libraries' search paths
# point into the source tree (where third_party/ is) or the build tree.
file(GLOB_RECURSE installed_cmake ${WORK_DIR}/prefix/*.cmake)
file(GLOB installed_libraries ${WORK_DIR}/prefix/lib/*.so)
foreach(file ${installed_cmake})
  file(READ ${file} content)
  foreach(tree ${SOURCE_DIR} ${BUILD_DIR})
    string(FIND "${content}" "${tree}" at)
    if(NOT at EQUAL -1)
      message(FATAL_ERROR "${file} points into ${tree}")
    endif()
  endforeach()
endforeach()
foreach(library ${installed_libraries})
  execute_process(COMMAND readelf -d ${library} OUTPUT_VARIABLE dynamic)
  string(REGEX MATCH "R(UN)?PATH[^\n]*" search_path "${dynamic}")
  string(FIND "${search_path}" "${SOURCE_DIR}" at)
  if(NOT at EQUAL -1)
    message(FATAL_ERROR "${library} searches ${SOURCE_DIR}: ${search_path}")
  endif()
endforeach()
run(${CMAKE_COMMAND} -S ${PROJECT_DIR} -B ${WORK_DIR}/build -G ${GENERATOR}
    -DCMAKE_PREFIX_PATH=${WORK_DIR}/prefix ${sanitize_flags})
run(${CMAKE_COMMAND} --build ${WORK_DIR}/build)

# A file the consumer can count whether or not the interop corpus is present: the consumer's
# own failure on a non-Parquet file must come back as the library's identifier.
run(${WORK_DIR}/build/consumer)
execute_process(COMMAND ${WORK_DIR}/build/consumer ${PROJECT_DIR}/main.cpp
  RESULT_VARIABLE result OUTPUT_VARIABLE out)
if(NOT out MATCHES "VANTRO:parquetio:read:InternalInvalidRead" OR result EQUAL 0)
  message(FATAL_ERROR "expected InternalInvalidRead from a non-Parquet file, got: ${out}")
endif()
if(EXISTS ${SAMPLE})
  run(${WORK_DIR}/build/consumer ${SAMPLE})
  if(NOT last_output STREQUAL "1\n")
    message(FATAL_ERROR "expected 1 row group in ${SAMPLE}, got: ${last_output}")
  endif()
endif()
