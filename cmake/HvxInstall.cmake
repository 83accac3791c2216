include(CMakePackageConfigHelpers)

install(TARGETS HalvexAPI EXPORT HalvexAPITargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/HVX DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT HalvexAPITargets
  NAMESPACE HalvexAPI::
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/HalvexAPI)

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/HalvexAPIConfig.cmake.in
  ${PROJECT_BINARY_DIR}/HalvexAPIConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/HalvexAPI)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/HalvexAPIConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/HalvexAPIConfig.cmake
  ${PROJECT_BINARY_DIR}/HalvexAPIConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/HalvexAPI)
