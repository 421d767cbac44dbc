# Included by RunPackagingTest.cmake (CASE readme): runs the README's install recipe, the
# ```sh block after the line that begins with "Install it", from the source tree, with the
# recipe's build directory and prefix replaced by `build` and `prefix`. Whatever a machine with
# only CMake, Ninja and a C++ compiler lacks is hidden from the configuration, which must still
# succeed, say that the tests are skipped, and build the tool.
file(READ ${SOURCE_DIR}/README.md readme)
string(REGEX MATCH "\nInstall it[^\n]*\n+```sh\n([^`]*)```" _ "${readme}")
set(recipe "${CMAKE_MATCH_1}")
string(REGEX MATCH " -B +([^ \n]+)" _ "${recipe}")
set(recipe_build "${CMAKE_MATCH_1}")
string(REGEX MATCH " --prefix +([^ \n]+)" _ "${recipe}")
set(recipe_prefix "${CMAKE_MATCH_1}")
if(recipe_build STREQUAL "" OR recipe_prefix STREQUAL "")
  message(FATAL_ERROR "README.md: no install recipe (a ```sh block after 'Install it' with "
                      "cmake -B and cmake --install --prefix)\n${recipe}")
endif()

set(hidden
  -DCMAKE_DISABLE_FIND_PACKAGE_GTest=ON
  -DCMAKE_DISABLE_FIND_PACKAGE_benchmark=ON
  -DCMAKE_DISABLE_FIND_PACKAGE_PkgConfig=ON
  -DCMAKE_DISABLE_FIND_PACKAGE_Python3=ON
  -DCMAKE_DISABLE_FIND_PACKAGE_pybind11=ON
  -DCMAKE_Fortran_COMPILER=CMAKE_Fortran_COMPILER-NOTFOUND
  -DCMAKE_CXX_COMPILER=${CXX_COMPILER})
if(GENERATOR MATCHES "Ninja" AND MAKE_PROGRAM)
  list(APPEND hidden -DCMAKE_MAKE_PROGRAM=${MAKE_PROGRAM})
endif()

string(REGEX REPLACE "\n$" "" recipe "${recipe}")
string(REPLACE "\n" ";" recipe "${recipe}")
foreach(line IN LISTS recipe)
  string(REPLACE "${recipe_build}" "${build}" line "${line}")
  string(REPLACE "${recipe_prefix}" "${prefix}" line "${line}")
  separate_arguments(command UNIX_COMMAND "${line}")
  list(POP_FRONT command program)
  if(NOT program STREQUAL "cmake")
    message(FATAL_ERROR "README.md: the install recipe runs something else than cmake: ${line}")
  endif()
  if(NOT "-S" IN_LIST command)
    run(${CMAKE_COMMAND} ${command})
    continue()
  endif()
  execute_process(COMMAND ${CMAKE_COMMAND} ${command} ${hidden} WORKING_DIRECTORY ${SOURCE_DIR}
    RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE out)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "Failed (${rc}): ${line}\n${out}")
  endif()
  if(NOT out MATCHES "GoogleTest not found")
    message(FATAL_ERROR "Without GoogleTest, the configuration does not say that the tests "
                        "are skipped:\n${out}")
  endif()
endforeach()

# The recipe leaves the library directory to GNUInstallDirs, which picks lib64 on some systems.
if(EXISTS ${prefix}/lib64/cmake/Kalvos)
  set(libdir lib64)
endif()
