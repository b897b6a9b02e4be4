# kiv_entities(<target> <base dir> [NO_INSTALL] <kiv files>...): generates a
# header and a source from each entity description (framework/generator/kivgen.cpp
# tells the format) and builds them into <target>. A file's include path is
# its path below <base dir> with .kiv become .h ("Ptp/HwConfig.kiv" ->
# "Ptp/HwConfig.h"); the header is installed there, next to the written ones,
# unless NO_INSTALL (the tests' own entities).
function(kiv_entities target base)
  cmake_parse_arguments(PARSE_ARGV 2 arg "NO_INSTALL" "" "")
  set(generated ${CMAKE_CURRENT_BINARY_DIR}/generated)
  get_filename_component(base ${base} ABSOLUTE)
  foreach(kiv ${arg_UNPARSED_ARGUMENTS})
    get_filename_component(kiv ${kiv} ABSOLUTE)
    file(RELATIVE_PATH path ${base} ${kiv})
    if(path MATCHES "^\\.\\./" OR NOT path MATCHES "\\.kiv$")
      message(FATAL_ERROR "kiv_entities: ${kiv} is not a .kiv file below ${base}")
    endif()
    string(REGEX REPLACE "\\.kiv$" "" stem ${path})
    set(header ${generated}/include/${stem}.h)
    set(source ${generated}/src/${stem}.cpp)
    add_custom_command(OUTPUT ${header} ${source}
                       COMMAND kivgen ${kiv} ${header} ${source} ${stem}.h
                       DEPENDS kivgen ${kiv}
                       COMMENT "Generating ${stem}.h and ${stem}.cpp from ${path}"
                       VERBATIM)
    target_sources(${target} PRIVATE ${header} ${source})
    get_filename_component(dir ${stem}.h DIRECTORY)
    if(NOT arg_NO_INSTALL)
      install(FILES ${header} DESTINATION ${VYRPTP_INCLUDEDIR}/${dir} COMPONENT development)
    endif()
  endforeach()
  if(arg_UNPARSED_ARGUMENTS)
    target_include_directories(${target} PUBLIC $<BUILD_INTERFACE:${generated}/include>)
  endif()
endfunction()
