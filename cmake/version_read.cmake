# version_read(<name> <header>): sets <name> to the version "x.y.z" that the macros <name>_MAJOR, <name>_MINOR and
# <name>_PATCH of a header make, and <name>_MAJOR to its first number. A version thus stands in one place, where code
# that is built without this build system finds it too.
function(version_read name header)
  set(version)
  foreach(part MAJOR MINOR PATCH)
    file(STRINGS ${header} line REGEX "^#define ${name}_${part} [0-9]+")
    if(NOT line MATCHES "${name}_${part} ([0-9]+)")
      message(FATAL_ERROR "${header}: no line '#define ${name}_${part} <number>'")
    endif()
    list(APPEND version ${CMAKE_MATCH_1})
  endforeach()
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${header})
  list(GET version 0 major)
  list(JOIN version "." version)
  set(${name} ${version} PARENT_SCOPE)
  set(${name}_MAJOR ${major} PARENT_SCOPE)
endfunction()
