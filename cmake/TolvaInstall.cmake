# SPDX-License-Identifier: Apache-2.0
# What an installation holds: the library with its headers and package files, the commands, their pages, the licence.

include(CMakePackageConfigHelpers)

set(packageFolder "${CMAKE_INSTALL_LIBDIR}/cmake/Tolva")
install(TARGETS tolva EXPORT TolvaTargets LIBRARY COMPONENT Library NAMELINK_COMPONENT Development)
install(EXPORT TolvaTargets NAMESPACE Tolva:: DESTINATION "${packageFolder}" COMPONENT Development)
foreach(header IN LISTS TOLVA_PUBLIC_HEADERS)
  get_filename_component(room "${header}" DIRECTORY)
  install(FILES "${PROJECT_SOURCE_DIR}/TolvaQuickLook/${header}" DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/tolva/${room}"
    COMPONENT Development)
endforeach()

configure_package_config_file("${PROJECT_SOURCE_DIR}/cmake/TolvaConfig.cmake.in" "${PROJECT_BINARY_DIR}/TolvaConfig.cmake"
  INSTALL_DESTINATION "${packageFolder}" NO_SET_AND_CHECK_MACRO)
# Before 1.0 a minor version may change the interface.
write_basic_package_version_file("${PROJECT_BINARY_DIR}/TolvaConfigVersion.cmake" COMPATIBILITY SameMinorVersion)
install(FILES "${PROJECT_BINARY_DIR}/TolvaConfig.cmake" "${PROJECT_BINARY_DIR}/TolvaConfigVersion.cmake"
  DESTINATION "${packageFolder}" COMPONENT Development)

# The prefix stands relative to the file, so that an installation can be moved or staged.
file(RELATIVE_PATH TOLVA_PREFIX_FROM_PC
  "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig" "${CMAKE_INSTALL_PREFIX}")
configure_file("${PROJECT_SOURCE_DIR}/cmake/tolva.pc.in" "${PROJECT_BINARY_DIR}/tolva.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/tolva.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig" COMPONENT Development)

foreach(command tolva-quicklook tolva-quicklook-thumbnailer)
  if(TARGET ${command})
    install(TARGETS ${command} COMPONENT Commands)
    install(FILES "${PROJECT_SOURCE_DIR}/docs/man/${command}.1" DESTINATION "${CMAKE_INSTALL_MANDIR}/man1" COMPONENT Commands)
  endif()
endforeach()
if(TARGET tolva-quicklook-thumbnailer)
  install(FILES "${PROJECT_SOURCE_DIR}/TolvaQuickLook/extension/tolva-quicklook.thumbnailer"
    DESTINATION "${CMAKE_INSTALL_DATADIR}/thumbnailers" COMPONENT Commands)
endif()
if(TOLVA_BUILD_HELPERS)
  install(TARGETS tolva-image-helper tolva-pdf-helper RUNTIME DESTINATION "${CMAKE_INSTALL_LIBEXECDIR}/tolva" COMPONENT Helpers)
endif()

install(FILES "${PROJECT_SOURCE_DIR}/LICENSE" "${PROJECT_SOURCE_DIR}/README.md" "${PROJECT_SOURCE_DIR}/CHANGELOG.md"
  DESTINATION "${CMAKE_INSTALL_DOCDIR}" COMPONENT Library)
