# What is installed serves other projects: the consumer, linked with the library, writes what quillon writes.

function(run)
  execute_process(COMMAND ${ARGN} OUTPUT_VARIABLE text ERROR_VARIABLE text RESULT_VARIABLE status)
  if(NOT status EQUAL 0)
    list(JOIN ARGN " " command)
    message(FATAL_ERROR "${command}: status ${status}\n${text}")
  endif()
  set(output "${text}" PARENT_SCOPE)
endfunction()

file(REMOVE_RECURSE ${work})
set(prefix ${work}/prefix)
run(${CMAKE_COMMAND} --install ${build} --prefix ${prefix})
run(${CMAKE_COMMAND} -S ${consumer} -B ${work}/build -G ${generator} -D CMAKE_CXX_COMPILER=${compiler}
  -D CMAKE_CXX_FLAGS=${flags} -D CMAKE_PREFIX_PATH=${prefix})
run(${CMAKE_COMMAND} --build ${work}/build)

run(${work}/build/consumer ${prefix}/${example})
set(theirs "${output}")
run(${prefix}/bin/quillon ${prefix}/${example})
if(NOT theirs MATCHES "CLASS Sshd_Other" OR NOT theirs STREQUAL output)
  message(FATAL_ERROR "the consumer wrote\n${theirs}\nand quillon\n${output}")
endif()

# The string helpers are there for who links them, and cost quillon no library.
run(${work}/build/text)
if(NOT output STREQUAL "STRASSE\n")
  message(FATAL_ERROR "the string helpers wrote\n${output}")
endif()
run(ldd ${prefix}/bin/quillon)
if(output MATCHES "unistring")
  message(FATAL_ERROR "quillon needs more than it should:\n${output}")
endif()
