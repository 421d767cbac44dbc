# Install rules of Kalvos: the library, its headers (the layout of the source tree under
# include/kalvos, so that "evaluator/Kalvos.h" is included the same way everywhere), a CMake
# package (find_package(Kalvos CONFIG) gives Kalvos::kalvos) and a pkg-config file.
include(CMakePackageConfigHelpers)

set(KALVOS_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/Kalvos
    CACHE STRING "Where the Kalvos CMake package files are installed, relative to the prefix")
set(KALVOS_PKGCONFIG_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig
    CACHE STRING "Where kalvos.pc is installed, relative to the prefix")

install(TARGETS kalvos EXPORT KalvosTargets
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Kalvos_Development
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Kalvos_Runtime
          NAMELINK_COMPONENT Kalvos_Development
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT Kalvos_Runtime)
install(FILES evaluator/Kalvos.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kalvos/evaluator COMPONENT Kalvos_Development)
install(FILES support/Functions.h support/JObject.h support/KalvosVars.h support/Messages.h
              support/RandomMersenne.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kalvos/support COMPONENT Kalvos_Development)
install(FILES capi/kalvos_c.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kalvos/capi COMPONENT Kalvos_Development)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/kalvos_include/kalvos_export.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kalvos COMPONENT Kalvos_Development)

if(TARGET kalvos_fortran)
  install(TARGETS kalvos_fortran EXPORT KalvosTargets
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Kalvos_Development
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Kalvos_Runtime
            NAMELINK_COMPONENT Kalvos_Development
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT Kalvos_Runtime)
  # The .mod file is this compiler's; the source is there for any other.
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/fortran/mod/kalvos.mod fortran/kalvos.f90
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kalvos/fortran COMPONENT Kalvos_Development)
endif()

install(EXPORT KalvosTargets
  NAMESPACE Kalvos::
  DESTINATION ${KALVOS_CMAKE_DIR}
  COMPONENT Kalvos_Development)
configure_package_config_file(cmake/KalvosConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/KalvosConfig.cmake
  INSTALL_DESTINATION ${KALVOS_CMAKE_DIR})
# 0.x releases promise the same: a consumer asking for 0.1 accepts any 0.y at or above it.
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/KalvosConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/KalvosConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/KalvosConfigVersion.cmake
  DESTINATION ${KALVOS_CMAKE_DIR} COMPONENT Kalvos_Development)

# kalvos.pc finds the prefix from its own place (${pcfiledir}), so the installed tree can be
# moved or installed with `cmake --install --prefix`; an absolute directory is kept as given.
function(kalvos_pc_dir var dir)
  if(IS_ABSOLUTE "${dir}")
    set(${var} "${dir}" PARENT_SCOPE)
  else()
    set(${var} "\${prefix}/${dir}" PARENT_SCOPE)
  endif()
endfunction()
if(IS_ABSOLUTE "${KALVOS_PKGCONFIG_DIR}")
  set(KALVOS_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
else()
  file(RELATIVE_PATH KALVOS_PC_UP "/prefix/${KALVOS_PKGCONFIG_DIR}" "/prefix")
  string(REGEX REPLACE "/$" "" KALVOS_PC_UP "${KALVOS_PC_UP}")
  set(KALVOS_PC_PREFIX "\${pcfiledir}/${KALVOS_PC_UP}")
endif()
kalvos_pc_dir(KALVOS_PC_LIBDIR "${CMAKE_INSTALL_LIBDIR}")
kalvos_pc_dir(KALVOS_PC_INCLUDEDIR "${CMAKE_INSTALL_INCLUDEDIR}")
if(KALVOS_LIBRARY_TYPE STREQUAL "STATIC_LIBRARY")
  set(KALVOS_PC_CFLAGS " -DKALVOS_STATIC_DEFINE")
else()
  set(KALVOS_PC_CFLAGS "")
endif()
configure_file(${CMAKE_CURRENT_SOURCE_DIR}/kalvos.pc.in ${CMAKE_CURRENT_BINARY_DIR}/kalvos.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/kalvos.pc
  DESTINATION ${KALVOS_PKGCONFIG_DIR} COMPONENT Kalvos_Development)

# An installed tool finds a shared libkalvos next to it, in ../lib, wherever the tree is put.
if(TARGET kalvos_cli AND KALVOS_LIBRARY_TYPE STREQUAL "SHARED_LIBRARY" AND NOT APPLE
   AND NOT WIN32 AND NOT IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  file(RELATIVE_PATH KALVOS_BIN_TO_LIB "/prefix/${CMAKE_INSTALL_BINDIR}"
       "/prefix/${CMAKE_INSTALL_LIBDIR}")
  set_target_properties(kalvos_cli PROPERTIES INSTALL_RPATH "$ORIGIN/${KALVOS_BIN_TO_LIB}")
endif()
