# One packaging test, run as `cmake -P` by CTest. Variables:
#   CASE         install, readme, add_subdirectory or fetchcontent
#   SHARED       ON for a shared libkalvos, OFF for a static one
#   SOURCE_DIR   the Kalvos source tree
#   WORK_DIR     a scratch directory, emptied first
#   C_COMPILER   compiles the C consumer with pkg-config (install case)
#   CXX_COMPILER, GENERATOR, MAKE_PROGRAM   passed through to every nested build
#   TOOLS        ON to build and install the kalvos tool too (install case)
#
# install: builds Kalvos, installs it into WORK_DIR/prefix, checks the tree, then builds the
# consumer against it with find_package and, when pkg-config is there, with pkg-config alone,
# and runs both. readme: the same, but Kalvos is built and installed by the commands of the
# README's install recipe, as on a machine that has only CMake, Ninja and a C++ compiler:
# GoogleTest, Google Benchmark, pkg-config (so libedit), Python, pybind11 and Fortran are
# hidden from it. add_subdirectory and fetchcontent: builds the consumer with Kalvos inside it.
cmake_minimum_required(VERSION 3.21)

set(consumer_dir ${CMAKE_CURRENT_LIST_DIR}/consumer)
set(expected_out "11\n1\nrun_5.dat\n")
set(expected_err "Evaluating [1/(a-5)]: Division by zero. in line 4\n")

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE out)
  if(NOT rc EQUAL 0)
    string(REPLACE ";" " " cmd "${ARGN}")
    message(FATAL_ERROR "Failed (${rc}): ${cmd}\n${out}")
  endif()
endfunction()

set(generator_args -G ${GENERATOR} -DCMAKE_CXX_COMPILER=${CXX_COMPILER})
if(MAKE_PROGRAM)
  list(APPEND generator_args -DCMAKE_MAKE_PROGRAM=${MAKE_PROGRAM})
endif()

# Runs a consumer program: it must print the three results, then report the error and exit 1.
function(check_consumer program)
  execute_process(COMMAND ${CMAKE_COMMAND} -E env ${ARGN} ${program}
    RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 1 OR NOT out STREQUAL expected_out OR NOT err STREQUAL expected_err)
    message(FATAL_ERROR "${program}: exit ${rc}\nstdout:\n${out}\nstderr:\n${err}\n"
                        "expected exit 1\nstdout:\n${expected_out}\nstderr:\n${expected_err}")
  endif()
  message(STATUS "${program}: expected output")
endfunction()

function(build_consumer how)
  set(build ${WORK_DIR}/consumer-${how})
  run(${CMAKE_COMMAND} -S ${consumer_dir} -B ${build} ${generator_args}
      -DKALVOS_CONSUME=${how} -DBUILD_SHARED_LIBS=${SHARED} ${ARGN})
  run(${CMAKE_COMMAND} --build ${build} --parallel 2)
  check_consumer(${build}/consumer)
endfunction()

file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})

if(CASE STREQUAL "add_subdirectory" OR CASE STREQUAL "fetchcontent")
  build_consumer(${CASE} -DKALVOS_SOURCE_DIR=${SOURCE_DIR})
  return()
elseif(NOT CASE STREQUAL "install" AND NOT CASE STREQUAL "readme")
  message(FATAL_ERROR "Unknown CASE '${CASE}'")
endif()

set(build ${WORK_DIR}/kalvos)
set(prefix ${WORK_DIR}/prefix)
set(libdir lib)
if(CASE STREQUAL "install")
  run(${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${build} ${generator_args}
      -DBUILD_SHARED_LIBS=${SHARED} -DKALVOS_BUILD_TESTS=OFF -DKALVOS_BUILD_EXAMPLES=OFF
      -DKALVOS_BUILD_TOOLS=${TOOLS} -DCMAKE_INSTALL_LIBDIR=${libdir})
  run(${CMAKE_COMMAND} --build ${build} --parallel 2)
  run(${CMAKE_COMMAND} --install ${build} --prefix ${prefix})
else()
  include(${CMAKE_CURRENT_LIST_DIR}/ReadmeRecipe.cmake)
endif()

# The installed tree.
set(expected_files
  include/kalvos/kalvos_export.h
  include/kalvos/capi/kalvos_c.h
  include/kalvos/evaluator/Kalvos.h
  include/kalvos/support/Functions.h
  include/kalvos/support/JObject.h
  include/kalvos/support/KalvosVars.h
  include/kalvos/support/RandomMersenne.h
  ${libdir}/cmake/Kalvos/KalvosConfig.cmake
  ${libdir}/cmake/Kalvos/KalvosConfigVersion.cmake
  ${libdir}/cmake/Kalvos/KalvosTargets.cmake
  ${libdir}/pkgconfig/kalvos.pc)
# Script mode knows no target platform; the names are those of the host, which builds for itself.
if(CMAKE_HOST_WIN32)
  set(library ${libdir}/kalvos.lib)
  set(exe_suffix .exe)
elseif(SHARED AND CMAKE_HOST_APPLE)
  set(library ${libdir}/libkalvos.dylib)
elseif(SHARED)
  set(library ${libdir}/libkalvos.so)
else()
  set(library ${libdir}/libkalvos.a)
endif()
list(APPEND expected_files ${library})
set(tool_built OFF)
if(TOOLS AND EXISTS ${SOURCE_DIR}/tools/CMakeLists.txt)
  set(tool_built ON)
  list(APPEND expected_files bin/kalvos${exe_suffix})
endif()
foreach(file IN LISTS expected_files)
  if(NOT EXISTS ${prefix}/${file})
    file(GLOB_RECURSE installed RELATIVE ${prefix} ${prefix}/*)
    string(REPLACE ";" "\n  " installed "${installed}")
    message(FATAL_ERROR "Not installed: ${file}\nInstalled:\n  ${installed}")
  endif()
endforeach()

# A shared library exports the public classes and functions, and nothing of its own besides
# (the standard library's template instances are exported by the standard library's rules).
find_program(NM nm)
if(SHARED AND NM AND CMAKE_HOST_UNIX AND NOT CMAKE_HOST_APPLE)
  execute_process(COMMAND ${NM} -DC --defined-only ${prefix}/${library}
    OUTPUT_VARIABLE symbols RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "nm failed on the installed library")
  endif()
  string(REPLACE "\n" ";" symbols "${symbols}")
  set(public "(Kalvos|KalvosVars|JObject|JException|CRandomMersenne)")
  set(found_api OFF)
  foreach(line IN LISTS symbols)
    string(REGEX REPLACE "^[0-9a-fA-F]* *[A-Za-z] " "" symbol "${line}")
    if(symbol MATCHES "^Kalvos::ComputeExpr\\(")
      set(found_api ON)
    endif()
    # A member template's instance is demangled with its return type first.
    if(symbol STREQUAL "" OR symbol MATCHES "^${public}::" OR symbol MATCHES "^fun::"
       OR symbol MATCHES "^[a-z]+ ${public}::[A-Za-z]+<"
       OR symbol MATCHES "^kalvos_[a-z_]+$"
       OR symbol MATCHES "^(typeinfo|typeinfo name|vtable) for ${public}$"
       OR symbol MATCHES "std::|__gnu_cxx::")
      continue()
    endif()
    message(FATAL_ERROR "The shared library exports a symbol outside its API: ${symbol}")
  endforeach()
  if(NOT found_api)
    message(FATAL_ERROR "The shared library does not export Kalvos::ComputeExpr")
  endif()
  message(STATUS "Exported symbols: the public API only")
endif()

# find_package.
build_consumer(find_package -DCMAKE_PREFIX_PATH=${prefix})

# pkg-config, with the compiler alone as a Makefile would use it.
find_program(PKG_CONFIG NAMES pkg-config pkgconf)
if(PKG_CONFIG)
  set(pc_env PKG_CONFIG_PATH=${prefix}/${libdir}/pkgconfig)
  foreach(query modversion cflags libs)
    execute_process(COMMAND ${CMAKE_COMMAND} -E env ${pc_env} ${PKG_CONFIG} --${query} kalvos
      RESULT_VARIABLE rc OUTPUT_VARIABLE pc_${query} OUTPUT_STRIP_TRAILING_WHITESPACE)
    if(NOT rc EQUAL 0)
      message(FATAL_ERROR "pkg-config --${query} kalvos failed")
    endif()
    separate_arguments(pc_${query} UNIX_COMMAND "${pc_${query}}")
  endforeach()
  file(STRINGS ${SOURCE_DIR}/CMakeLists.txt project_line REGEX "^project\\(Kalvos VERSION")
  string(REGEX MATCH "VERSION ([0-9.]+)" _ "${project_line}")
  if(NOT pc_modversion STREQUAL CMAKE_MATCH_1)
    message(FATAL_ERROR "kalvos.pc has version '${pc_modversion}', the project ${CMAKE_MATCH_1}")
  endif()
  run(${CXX_COMPILER} -std=c++17 ${pc_cflags} ${consumer_dir}/main.cpp
      -o ${WORK_DIR}/consumer-pkgconfig ${pc_libs})
  check_consumer(${WORK_DIR}/consumer-pkgconfig LD_LIBRARY_PATH=${prefix}/${libdir})
  # A C program: --static adds the C++ runtime that a static library needs.
  if(C_COMPILER)
    execute_process(COMMAND ${CMAKE_COMMAND} -E env ${pc_env} ${PKG_CONFIG} --libs --static kalvos
      RESULT_VARIABLE rc OUTPUT_VARIABLE pc_static OUTPUT_STRIP_TRAILING_WHITESPACE)
    separate_arguments(pc_static UNIX_COMMAND "${pc_static}")
    run(${C_COMPILER} -std=c99 ${pc_cflags} ${consumer_dir}/main.c
        -o ${WORK_DIR}/consumer-c ${pc_static})
    check_consumer(${WORK_DIR}/consumer-c LD_LIBRARY_PATH=${prefix}/${libdir})
  endif()
else()
  message(STATUS "pkg-config not found: kalvos.pc not tried")
endif()

# The installed tool runs from the installed tree, a shared library included.
if(tool_built)
  execute_process(COMMAND ${prefix}/bin/kalvos${exe_suffix} "1 + 2"
    RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0 OR NOT out STREQUAL "3\n")
    message(FATAL_ERROR "Installed kalvos '1 + 2': exit ${rc}\n${out}${err}")
  endif()
  message(STATUS "Installed kalvos tool runs")
endif()
