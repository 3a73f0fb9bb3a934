# Installs the built library into a scratch prefix, then builds and runs hosts against it:
# through find_package(qvcommon) a C host and a C++17 host, through pkg-config the same two
# with README's rpath line, so that they start without LD_LIBRARY_PATH. The hosts must find
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

set(pkg_config ${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${prefix}/lib/pkgconfig pkg-config)
execute_process(COMMAND ${pkg_config} --cflags --libs qvcommon
                OUTPUT_VARIABLE flags OUTPUT_STRIP_TRAILING_WHITESPACE RESULT_VARIABLE result)
execute_process(COMMAND ${pkg_config} --variable=libdir qvcommon
                OUTPUT_VARIABLE libdir OUTPUT_STRIP_TRAILING_WHITESPACE)
if(result)
  message(FATAL_ERROR "pkg-config does not know qvcommon")
endif()
separate_arguments(flags UNIX_COMMAND "${flags}")
foreach(host consumer.c:cc consumer_cxx.cpp:c++)
  string(REPLACE ":" ";" host "${host}")
  list(GET host 0 source)
  list(GET host 1 compiler)
  set(standard)
  if(compiler STREQUAL c++)
    set(standard -std=c++17)
  endif()
  execute_process(COMMAND ${compiler} ${standard} ${SOURCE}/tests/install/consumer/${source}
                          ${flags} -Wl,-rpath,${libdir} -o ${WORK}/pc_${source}.out
                  RESULT_VARIABLE result)
  if(result)
    message(FATAL_ERROR "pkg-config consumer ${source} did not build")
  endif()
endforeach()

foreach(host ${WORK}/consumer/consumer ${WORK}/consumer/consumer_cxx)
  execute_process(COMMAND ${CMAKE_COMMAND} -E env --unset=QV_MESSAGE_PATH ${host}
                  RESULT_VARIABLE result OUTPUT_VARIABLE output)
  if(result)
    message(FATAL_ERROR "${host} failed: ${output}")
  endif()
endforeach()
foreach(host ${WORK}/pc_consumer.c.out ${WORK}/pc_consumer_cxx.cpp.out)
  execute_process(COMMAND ${CMAKE_COMMAND} -E env --unset=QV_MESSAGE_PATH --unset=LD_LIBRARY_PATH
                          ${host}
                  RESULT_VARIABLE result OUTPUT_VARIABLE output)
  if(result)
    message(FATAL_ERROR "${host} failed: ${output}")
  endif()
endforeach()
