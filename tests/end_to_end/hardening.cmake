# The installed build must be position-independent, fully relocated read-only, with stack protector and
# fortified calls. Run as: cmake -DPROGRAM=<file> -P hardening.cmake
cmake_minimum_required(VERSION 3.24)

function(readelf flags result)
  execute_process(COMMAND readelf -W ${flags} ${PROGRAM} OUTPUT_VARIABLE text COMMAND_ERROR_IS_FATAL ANY)
  set(${result} "${text}" PARENT_SCOPE)
endfunction()

function(expect text pattern what)
  if(NOT text MATCHES "${pattern}")
    message(FATAL_ERROR "${PROGRAM}: ${what} is missing")
  endif()
endfunction()

readelf(-h header)
readelf(-l segments)
readelf(-d dynamic)
readelf(-s symbols)
expect("${header}" "Type:[ ]+DYN" "position independence")
expect("${segments}" "GNU_RELRO" "read-only relocation")
expect("${dynamic}" "BIND_NOW|FLAGS.*NOW" "immediate binding")
expect("${symbols}" "__stack_chk_fail" "the stack protector")
expect("${symbols}" "__[a-z]+_chk@" "a fortified call")
