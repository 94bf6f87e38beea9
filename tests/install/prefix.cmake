cmake_minimum_required(VERSION 3.22)

# Installs the build into a prefix, moves the prefix, and uses it there as a stranger would.

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE errors)
  if(NOT result EQUAL 0)
    list(JOIN ARGN " " command)
    message(FATAL_ERROR "${command}\nended with ${result}:\n${output}\n${errors}")
  endif()
  set(output "${output}" PARENT_SCOPE)
endfunction()

function(expect_output what)
  if(NOT output STREQUAL "ui:settings/audio?a=1\n")
    message(FATAL_ERROR "${what} printed \"${output}\"")
  endif()
  message(STATUS "${what}: as expected")
endfunction()

file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})

# With DESTDIR everything lies under it, at the configured prefix.
run(${CMAKE_COMMAND} -E env DESTDIR=${WORK_DIR}/destdir ${CMAKE_COMMAND} --install ${BUILD_DIR})
if(NOT EXISTS ${WORK_DIR}/destdir${INSTALL_PREFIX}/${LIBDIR}/liborvo_api.so)
  message(FATAL_ERROR "nothing was installed under DESTDIR${INSTALL_PREFIX}/${LIBDIR}")
endif()

run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${WORK_DIR}/staged)
set(prefix ${WORK_DIR}/moved)
file(RENAME ${WORK_DIR}/staged ${prefix})

file(GLOB_RECURSE private ${prefix}/include/*_p.h)
if(private)
  message(FATAL_ERROR "private headers are installed: ${private}")
endif()

file(GLOB_RECURSE texts ${prefix}/*.cmake ${prefix}/*.pc ${prefix}/*.h)
foreach(text IN LISTS texts)
  file(READ ${text} content)
  foreach(folder IN ITEMS ${PROJECT_DIR} ${BUILD_DIR} ${WORK_DIR})
    string(FIND "${content}" "${folder}" place)
    if(NOT place EQUAL -1)
      message(FATAL_ERROR "${text} names ${folder}")
    endif()
  endforeach()
endforeach()

# A CMake project that knows the prefix alone.
run(${CMAKE_COMMAND} -S ${SOURCE_DIR}/foreign -B ${WORK_DIR}/foreign -G ${GENERATOR}
  -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_CXX_FLAGS=${CXX_FLAGS} -DWITH_KIT=${KIT})
run(${CMAKE_COMMAND} --build ${WORK_DIR}/foreign)
run(${WORK_DIR}/foreign/foreign)
expect_output("the CMake project")

# The compiler with what pkg-config says.
set(package orvo_api)
if(KIT)
  set(package orvo_kit)
endif()
run(${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${prefix}/${LIBDIR}/pkgconfig ${PKG_CONFIG} --cflags --libs ${package})
separate_arguments(flags UNIX_COMMAND "${output}")
set(defines "")
if(KIT)
  set(defines -DWITH_KIT)
endif()
run(${CXX} -std=c++17 ${CXX_FLAGS} ${defines} ${SOURCE_DIR}/foreign/main.cpp -o ${WORK_DIR}/plain ${flags})
run(${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${prefix}/${LIBDIR} ${WORK_DIR}/plain)
expect_output("the plain compiler")

# Installed programs find the moved libraries by themselves.
if(EXISTS ${prefix}/bin/orvoctl)
  run(${prefix}/bin/orvoctl --help)
endif()

# The two programs of the README, taken from it as they stand, speak to each other.
if(KIT)
  file(READ ${PROJECT_DIR}/README.md readme)
  foreach(program IN ITEMS service client)
    string(FIND "${readme}" "```cpp\n" begin)
    if(begin EQUAL -1)
      message(FATAL_ERROR "the README has no ${program}")
    endif()
    math(EXPR begin "${begin} + 7")
    string(SUBSTRING "${readme}" ${begin} -1 readme)
    string(FIND "${readme}" "```" end)
    string(SUBSTRING "${readme}" 0 ${end} code)
    math(EXPR end "${end} + 3")
    string(SUBSTRING "${readme}" ${end} -1 readme)
    file(WRITE ${WORK_DIR}/readme_${program}.cpp "${code}")
    run(${CXX} -std=c++17 ${CXX_FLAGS} ${WORK_DIR}/readme_${program}.cpp -o ${WORK_DIR}/readme_${program} ${flags})
  endforeach()
  run(${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${prefix}/${LIBDIR}
    sh ${SOURCE_DIR}/talk.sh ${WORK_DIR}/readme_service ${WORK_DIR}/readme_client)
  if(NOT output MATCHES "brightness 70\n$")
    message(FATAL_ERROR "the client of the README printed \"${output}\"")
  endif()
  message(STATUS "the programs of the README: as expected")
endif()
