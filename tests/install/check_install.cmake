# Installs the built library into a scratch prefix, then builds and runs a C host against it
# twice: once through find_package(qvcommon), once through pkg-config. The host must find
# the message files under the prefix without being told where they are.
set(prefix ${WORK}/prefix)
file(REMOVE_RECURSE ${WORK})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD} --prefix ${prefix}
                RESULT_VARIABLE result OUTPUT_QUIET)
if(result)
  message(FATAL_ERROR "install failed")
endif()

execute_process(COMMAND ${CMAKE_COMMAND} -S ${SOURCE}/tests/install/consumer -B ${WORK}/consumer
                -DCMAKE_PREFIX_PATH=${prefix} RESULT_VARIABLE result OUTPUT_QUIET)
if(result)
  message(FATAL_ERROR "find_package(qvcommon) consumer did not configure")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} --build ${WORK}/consumer RESULT_VARIABLE result OUTPUT_QUIET)
if(result)
  message(FATAL_ERROR "find_package(qvcommon) consumer did not build")
endif()

execute_process(COMMAND ${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${prefix}/lib/pkgconfig
                        pkg-config --cflags --libs qvcommon
                OUTPUT_VARIABLE flags OUTPUT_STRIP_TRAILING_WHITESPACE RESULT_VARIABLE result)
if(result)
  message(FATAL_ERROR "pkg-config does not know qvcommon")
endif()
separate_arguments(flags UNIX_COMMAND "${flags}")
execute_process(COMMAND cc ${SOURCE}/tests/install/consumer/consumer.c ${flags} -o ${WORK}/pc_consumer
                RESULT_VARIABLE result)
if(result)
  message(FATAL_ERROR "pkg-config consumer did not build")
endif()

foreach(host ${WORK}/consumer/consumer ${WORK}/pc_consumer)
  execute_process(COMMAND ${CMAKE_COMMAND} -E env --unset=QV_MESSAGE_PATH
                          LD_LIBRARY_PATH=${prefix}/lib ${host}
                  RESULT_VARIABLE result OUTPUT_VARIABLE output)
  if(result)
    message(FATAL_ERROR "${host} failed: ${output}")
  endif()
endforeach()
