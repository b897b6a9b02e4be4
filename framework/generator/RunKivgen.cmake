# Runs kivgen for a test of framework/generator/CMakeLists.txt:
#   cmake -DKIVGEN=<kivgen> [-DINPUT=<x.kiv> -DOUT=<dir>] [-DEXPECTED=<stem> | -DEXPECT_ERROR=ON] -P RunKivgen.cmake
# kivgen writes OUT/out.h and OUT/out.cpp (include path Demo/<name of INPUT>.h);
# without INPUT it runs with no arguments.
#  EXPECTED:     the outputs equal <stem>.h and <stem>.cpp, and a second run
#                leaves them untouched (their time stays in the past).
#  EXPECT_ERROR: kivgen exits with status 1 and writes nothing; its message
#                is printed for the test's regular expression.
#  BLOCK_OUT:    OUT is made a plain file, so that nothing can be written below it.
if(INPUT)
  get_filename_component(name ${INPUT} NAME_WE)
  file(REMOVE_RECURSE ${OUT})
  if(BLOCK_OUT)
    file(TOUCH ${OUT})
  endif()
  set(command ${KIVGEN} ${INPUT} ${OUT}/out.h ${OUT}/out.cpp Demo/${name}.h)
else()
  set(command ${KIVGEN})
endif()
execute_process(COMMAND ${command} RESULT_VARIABLE status ERROR_VARIABLE errors)

if(EXPECT_ERROR)
  # The message is printed last, once the rest holds: the test's regular
  # expression decides alone, whatever this script's status.
  if(NOT status EQUAL 1)
    message(FATAL_ERROR "kivgen exited with status ${status}, not 1")
  endif()
  if(INPUT AND (EXISTS ${OUT}/out.h OR EXISTS ${OUT}/out.cpp))
    message(FATAL_ERROR "kivgen wrote into ${OUT} despite the error")
  endif()
  message("${errors}")
  return()
endif()

if(NOT status EQUAL 0)
  message(FATAL_ERROR "kivgen exited with status ${status}: ${errors}")
endif()
foreach(ext h cpp)
  execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files ${EXPECTED}.${ext} ${OUT}/out.${ext} RESULT_VARIABLE differs)
  if(differs)
    execute_process(COMMAND diff -u ${EXPECTED}.${ext} ${OUT}/out.${ext})
    message(FATAL_ERROR "${OUT}/out.${ext} differs from ${EXPECTED}.${ext}")
  endif()
endforeach()
# Unchanged outputs keep their time, so that nothing that includes them rebuilds.
execute_process(COMMAND touch -d 2000-01-01 ${OUT}/out.h ${OUT}/out.cpp COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${command} RESULT_VARIABLE status)
foreach(ext h cpp)
  file(TIMESTAMP ${OUT}/out.${ext} year "%Y")
  if(NOT status EQUAL 0 OR NOT year STREQUAL "2000")
    message(FATAL_ERROR "a second run over unchanged input rewrote out.${ext} (status ${status})")
  endif()
endforeach()
