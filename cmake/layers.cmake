# Holds every #include line against the layer table, the first line of every file against its path, its length against
# the limit, and every test against the CMake list of its folder.
# Run as: cmake -DROOT=<source folder> -P cmake/layers.cmake
cmake_minimum_required(VERSION 3.24)

set(header "[A-Za-z0-9_/]+\\.h")
set(toolkit "<(gtk|gdk|glib|gio|gmodule|gdk-pixbuf|atk)[a-z0-9/-]*\\.h>")
set(test_tools "<(gtest|gmock|benchmark)/[a-z-]+\\.h>")

# What a folder may include besides the C++ and POSIX headers, and the layer word of its first lines.
set(word.lib "library")
set(may.lib "\"lib/${header}\"" "\"lib_tavu_2(_extensions)?\\.h\"") # the public header is two, installed side by side
set(never.lib "<thread>")

set(word.trace "trace")
set(may.trace "\"trace/${header}\"" "\"lib/lib_tavu_2\\.h\"")
set(never.trace "<(thread|future|termios|poll|pthread|sys/ioctl|sys/socket)(\\.h)?>")

set(word.service "service")
set(may.service "\"service/${header}\"" "\"lib/lib_tavu_2\\.h\"")

set(word.gui "user interface")
set(may.gui "\"(gui|trace)/${header}\"" "\"service/(apipart|message_schedule|traffic_queues)\\.h\"" "\"lib/lib_tavu_2\\.h\"" ${toolkit})
set(never.gui "<(termios|unistd|fcntl|poll|sys/ioctl|sys/file)\\.h>")

set(word.cli "command")
set(may.cli "\"(cli|trace)/${header}\"" "\"lib/lib_tavu_2\\.h\"")
set(may.cli/options.cpp "<CLI/[A-Za-z]+\\.hpp>") # to read it takes longer than to compile any other file
set(may.cli/main.cpp ${may.cli/options.cpp})

set(word.sim "simulated module")
set(may.sim "\"sim/${header}\"")

set(word.tests/lib "test")
set(may.tests/lib "\"(lib|sim|tests/lib)/${header}\"" ${test_tools})
set(word.tests/trace "test")
set(may.tests/trace "\"(trace|tests/trace)/${header}\"" "\"lib/lib_tavu_2\\.h\"" ${test_tools})
set(word.tests/service "test")
set(may.tests/service "\"(service|sim|tests/service)/${header}\"" "\"lib/lib_tavu_2\\.h\"" ${test_tools})
set(word.tests/gui "test")
set(may.tests/gui "\"(gui|trace|service|sim|tests/gui)/${header}\"" "\"(lib/lib_tavu_2|tools/ui_script/widgets)\\.h\"" ${toolkit}
    ${test_tools})
set(word.tests/sim "test")
set(may.tests/sim "\"(sim|tests/sim)/${header}\"" ${test_tools})
set(word.tests/cli "test")
set(may.tests/cli ${test_tools})
set(word.tests/end_to_end "test")
set(may.tests/end_to_end "\"(sim|tests/end_to_end)/${header}\"" ${test_tools})
set(word.tests/usb_guest "test")
set(may.tests/usb_guest "\"(service|sim|tests/usb_guest)/${header}\"" "\"lib/lib_tavu_2\\.h\"")
set(word.tests/fuzz "test")
set(may.tests/fuzz "\"(lib|trace|tests/fuzz)/${header}\"")

set(word.tools "tool")
set(may.tools "\"tools/${header}\"" ${toolkit})
set(word.bench "benchmark")
set(may.bench "\"(bench|lib|trace|service|gui|sim)/${header}\"" ${toolkit} ${test_tools})
set(word.examples "example")
set(may.examples "<lib_tavu_2\\.h>")

set(folders lib trace service gui cli sim tests/lib tests/trace tests/service tests/gui tests/sim tests/cli tests/end_to_end
            tests/usb_guest tests/fuzz tools bench examples)
set(most_lines 500)
set(system_header "<[a-z_/0-9]+(\\.h)?>")
set(faults 0)

macro(fault text)
  message(STATUS "${source}: ${text}")
  math(EXPR faults "${faults} + 1")
endmacro()

# Sets `allowed` to whether `folder` may include `name`.
macro(judge_include)
  set(allowed FALSE)
  foreach(pattern IN LISTS may.${folder} may.${source})
    if(name MATCHES "^${pattern}$")
      set(allowed TRUE)
    endif()
  endforeach()
  if(name MATCHES "^${system_header}$" AND NOT name MATCHES "^${toolkit}$")
    set(allowed TRUE)
  endif()
  if(DEFINED never.${folder} AND name MATCHES "^${never.${folder}}$")
    set(allowed FALSE)
  endif()
endmacro()

foreach(folder IN LISTS folders)
  file(GLOB_RECURSE sources RELATIVE ${ROOT} ${ROOT}/${folder}/*.cpp ${ROOT}/${folder}/*.h ${ROOT}/${folder}/*.c)
  foreach(source IN LISTS sources)
    file(STRINGS ${ROOT}/${source} first_line LIMIT_COUNT 1)
    if(NOT first_line MATCHES "^(// |/\\* )${source} - ${word.${folder}}: .+")
      fault("the first line must read '// ${source} - ${word.${folder}}: ...'")
    endif()
    file(READ ${ROOT}/${source} text)
    string(REGEX MATCHALL "\n" line_ends "${text}")
    list(LENGTH line_ends lines)
    if(lines GREATER most_lines)
      fault("${lines} lines, ${most_lines} are allowed")
    endif()
    # A test that no list names would never run.
    get_filename_component(name ${source} NAME)
    if(name MATCHES "_test\\.cpp$")
      get_filename_component(list_folder ${source} DIRECTORY)
      file(STRINGS ${ROOT}/${list_folder}/CMakeLists.txt listed REGEX "(^|[ (])${name}([ )]|$)")
      if(NOT listed)
        fault("stands in no list of ${list_folder}/CMakeLists.txt")
      endif()
    endif()
    file(STRINGS ${ROOT}/${source} includes REGEX "^#[ ]*include")
    foreach(line IN LISTS includes)
      string(REGEX REPLACE "^#[ ]*include[ ]*([\"<][^\">]+[\">]).*$" "\\1" name "${line}")
      judge_include()
      if(NOT allowed)
        fault("${folder}/ may not include ${name}")
      endif()
    endforeach()
  endforeach()
endforeach()

if(faults GREATER 0)
  message(FATAL_ERROR "${faults} breaches of the layer rules")
endif()
