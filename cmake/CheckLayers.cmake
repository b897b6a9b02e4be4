# cmake -P CheckLayers.cmake <source dir>: fails naming each include that
# reaches upwards. Pondo uses Pondo alone; the runtime uses no platform
# interface; nothing but the simulator, tests, benchmarks and fuzz targets uses
# a simulated backend, and simulated backends (Sim*, Simulated*) sit in
# framework/simulated/.
set(root ${CMAKE_ARGV3})
set(runtime ${root}/framework/runtime/include)
set(platform ${root}/framework/platform/include)
set(simulated ${root}/framework/simulated/include)
# <files glob> <forbidden include directories>...
function(check files)
  file(GLOB_RECURSE sources ${root}/${files})
  check_sources("${sources}" "^$" ${ARGN})
endfunction()
# <files> <regex of headers allowed anyway> <forbidden include directories>...
function(check_sources sources allowed)
  foreach(source ${sources})
    file(STRINGS ${source} includes REGEX "^#include \"")
    foreach(line ${includes})
      string(REGEX REPLACE "^#include \"([^\"]+)\".*" "\\1" header "${line}")
      if(header MATCHES "${allowed}")
        continue()
      endif()
      # A generated header's description (.kiv) stands where the header would.
      string(REGEX REPLACE "\\.h$" ".kiv" description "${header}")
      foreach(dir ${ARGN})
        if(EXISTS ${dir}/${header} OR EXISTS ${dir}/${description})
          file(RELATIVE_PATH where ${root} ${source})
          message(SEND_ERROR "${where}: includes \"${header}\" from a layer above it")
        endif()
      endforeach()
    endforeach()
  endforeach()
endfunction()

# Pondo's headers, and the sources whose own header (the first include) is one.
file(GLOB_RECURSE pondo ${runtime}/Pondo/*)
file(GLOB runtime_sources ${root}/framework/runtime/src/*.cpp)
foreach(source ${runtime_sources})
  file(STRINGS ${source} first REGEX "^#include \"" LIMIT_COUNT 1)
  if(first MATCHES "^#include \"Pondo/")
    list(APPEND pondo ${source})
  endif()
endforeach()
check_sources("${pondo}" "^Pondo/" ${runtime} ${platform} ${simulated})
check("framework/runtime/*" ${platform} ${simulated})
check("framework/platform/*" ${simulated})
check("src/VyrPtp/*" ${simulated})

# Simulated backends live in framework/simulated/ alone.
file(GLOB_RECURSE misplaced ${root}/framework/runtime/*/Sim* ${root}/framework/platform/*/Sim*)
foreach(file ${misplaced})
  file(RELATIVE_PATH where ${root} ${file})
  message(SEND_ERROR "${where}: a simulated backend belongs in framework/simulated/")
endforeach()
