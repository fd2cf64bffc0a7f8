# Defaults for the project's own targets: warnings on (Arrow's headers come in as system
# headers), and, on the Arrow 11 build, the wheel's pre-C++11 std::string ABI for everyone who
# includes our headers.
function(vx_target_defaults target)
  target_compile_options(${target} PRIVATE -Wall -Wextra)
  if(NOT VX_ARROW_OLD_ABI)
    return()
  endif()
  get_target_property(type ${target} TYPE)
  if(type STREQUAL "EXECUTABLE")
    target_compile_definitions(${target} PRIVATE _GLIBCXX_USE_CXX11_ABI=0)
  else()
    target_compile_definitions(${target} PUBLIC _GLIBCXX_USE_CXX11_ABI=0)
  endif()
endfunction()
