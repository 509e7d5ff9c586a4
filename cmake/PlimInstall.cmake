# `cmake --install`: the shared library (and the static one when built), the public headers, a CMake
# package (find_package(PlimBitmapLib) gives the target PlimBitmapLib::PlimBitmapLib), a pkg-config
# file (plimbitmap.pc), the plim tool with its manual page, the licence and change log, and the
# Objective-C classes when they were built.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(PLIM_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/PlimBitmapLib)
set(PLIM_PKGCONFIG_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

target_include_directories(PlimBitmapLib INTERFACE $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
install(TARGETS PlimBitmapLib EXPORT PlimBitmapLibTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
if(TARGET PlimBitmapLibStatic)
  install(TARGETS PlimBitmapLibStatic ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
endif()
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/PlimBitmapLib
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
        PATTERN "objects" EXCLUDE)
install(EXPORT PlimBitmapLibTargets NAMESPACE PlimBitmapLib:: DESTINATION ${PLIM_CMAKE_DIR})

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/PlimBitmapLibConfig.cmake.in
                              ${PROJECT_BINARY_DIR}/PlimBitmapLibConfig.cmake
                              INSTALL_DESTINATION ${PLIM_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/PlimBitmapLibConfigVersion.cmake
                                 COMPATIBILITY ${PLIM_VERSION_COMPATIBILITY})
install(FILES ${PROJECT_BINARY_DIR}/PlimBitmapLibConfig.cmake
              ${PROJECT_BINARY_DIR}/PlimBitmapLibConfigVersion.cmake
        DESTINATION ${PLIM_CMAKE_DIR})

# The .pc file finds its prefix from where it lies, so `cmake --install --prefix` anywhere works.
file(RELATIVE_PATH PLIM_PC_TO_PREFIX /${PLIM_PKGCONFIG_DIR} /)
string(REGEX REPLACE "/$" "" PLIM_PC_TO_PREFIX "${PLIM_PC_TO_PREFIX}")
string(REPLACE ";" " " PLIM_PC_REQUIRES_PRIVATE "${PLIM_PKG_MODULES}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/plimbitmap.pc.in ${PROJECT_BINARY_DIR}/plimbitmap.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/plimbitmap.pc DESTINATION ${PLIM_PKGCONFIG_DIR})

if(TARGET plim)
  # The installed tool finds the library it was built with from its own place in the prefix.
  file(RELATIVE_PATH _plim_bin_to_lib /${CMAKE_INSTALL_BINDIR} /${CMAKE_INSTALL_LIBDIR})
  set_target_properties(plim PROPERTIES INSTALL_RPATH "$ORIGIN/${_plim_bin_to_lib}")
  install(TARGETS plim RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  if(PLIM_MAN_PAGE)
    install(FILES ${PLIM_MAN_PAGE} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  endif()
endif()
install(FILES ${PROJECT_SOURCE_DIR}/LICENSE ${PROJECT_SOURCE_DIR}/CHANGELOG.md
              ${PROJECT_SOURCE_DIR}/README.md
        DESTINATION ${CMAKE_INSTALL_DOCDIR})
if(TARGET PlimBitmapObjects)
  install(TARGETS PlimBitmapObjects LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/PlimBitmapLib/objects
          DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/PlimBitmapLib)
endif()
