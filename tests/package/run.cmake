# What is installed serves other projects: the consumer, linked with the library, writes what quillon writes, and one class
# more. It is built with the flags of the library and, where those have no sanitizer, with the address sanitizer as well:
# which flags a program has is its own affair.

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
run(${prefix}/bin/quillon ${prefix}/${example})
set(expected "${output}")
set(variants "library-flags=${flags}")
if(NOT flags)
  list(APPEND variants "address=-fsanitize=address")
endif()

foreach(variant ${variants})
  string(REGEX MATCH "^([a-z-]+)=(.*)$" variant "${variant}")
  set(there ${work}/${CMAKE_MATCH_1})
  run(${CMAKE_COMMAND} -S ${consumer} -B ${there} -G ${generator} -D CMAKE_CXX_COMPILER=${compiler}
    -D CMAKE_CXX_FLAGS=${CMAKE_MATCH_2} -D CMAKE_PREFIX_PATH=${prefix})
  run(${CMAKE_COMMAND} --build ${there})
  run(${there}/consumer ${prefix}/${example})
  string(FIND "${output}" "${expected}CLASS Consumer\n" place)
  if(NOT expected MATCHES "CLASS Sshd_Other" OR NOT place EQUAL 0)
    message(FATAL_ERROR "the consumer wrote\n${output}\nand quillon\n${expected}")
  endif()

  # The string helpers are there for who links them.
  run(${there}/text)
  if(NOT output STREQUAL "STRASSE\n")
    message(FATAL_ERROR "the string helpers wrote\n${output}")
  endif()
  run(${CMAKE_COMMAND} -E env LC_ALL=C.UTF-8 NLSPATH= NXLDIR= ${there}/locale)
  if(NOT output STREQUAL "2 1\n")
    message(FATAL_ERROR "the string helpers of the locale wrote\n${output}")
  endif()
endforeach()

# They cost quillon no library.
run(ldd ${prefix}/bin/quillon)
if(output MATCHES "unistring")
  message(FATAL_ERROR "quillon needs more than it should:\n${output}")
endif()
