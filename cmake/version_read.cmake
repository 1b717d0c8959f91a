# version_read(<macro> <header>): sets the variable of the same name to the text that the header gives the macro, so that
# a version stands in one place, where code built without this build system finds it too.
function(version_read macro header)
  file(STRINGS ${header} line REGEX "^#define ${macro} ")
  if(NOT line MATCHES "\"([0-9]+\\.[0-9]+\\.[0-9]+)\"$")
    message(FATAL_ERROR "${header}: no line '#define ${macro} \"x.y.z\"'")
  endif()
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${header})
  set(${macro} ${CMAKE_MATCH_1} PARENT_SCOPE)
endfunction()
