# Warnings, hardening and sanitizers, shared by every target through the interface target tavu_options.
include(CheckPIESupported)
check_pie_supported()

add_library(tavu_options INTERFACE)
target_include_directories(tavu_options INTERFACE ${CMAKE_SOURCE_DIR})
target_compile_options(tavu_options INTERFACE -Wall -Wextra -Wpedantic -Wconversion)
if(TAVU_WERROR)
  target_compile_options(tavu_options INTERFACE -Werror)
endif()

if(TAVU_SANITIZE)
  target_compile_options(tavu_options INTERFACE -fsanitize=${TAVU_SANITIZE} -fno-omit-frame-pointer)
  target_link_options(tavu_options INTERFACE -fsanitize=${TAVU_SANITIZE})
  if(TAVU_SANITIZE MATCHES "undefined")
    target_compile_options(tavu_options INTERFACE -fno-sanitize-recover=undefined)
  endif()
else()
  # Position-independent executables come from CMAKE_POSITION_INDEPENDENT_CODE.
  target_compile_options(tavu_options INTERFACE -fstack-protector-strong)
  target_compile_options(tavu_options INTERFACE "$<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>")
  target_link_options(tavu_options INTERFACE -Wl,-z,relro -Wl,-z,now)
endif()

if(TAVU_FUZZ)
  target_compile_options(tavu_options INTERFACE -fsanitize=fuzzer-no-link)
endif()
