# cmake --install: the library with its headers, a CMake package (find_package(L2Rib)) and a pkg-config file.
include(CMakePackageConfigHelpers)
install(TARGETS l2rib EXPORT L2RibTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY platform/ Memtab QuilMemtab L2Rib DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/l2rib
        FILES_MATCHING PATTERN "*.h")
install(EXPORT L2RibTargets NAMESPACE L2Rib:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/L2Rib)
file(WRITE ${CMAKE_BINARY_DIR}/L2RibConfig.cmake "include(\${CMAKE_CURRENT_LIST_DIR}/L2RibTargets.cmake)\n")
write_basic_package_version_file(${CMAKE_BINARY_DIR}/L2RibConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_BINARY_DIR}/L2RibConfig.cmake ${CMAKE_BINARY_DIR}/L2RibConfigVersion.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/L2Rib)
file(RELATIVE_PATH L2RIB_PC_TO_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)  # wherever it is installed to
configure_file(cmake/l2rib.pc.in ${CMAKE_BINARY_DIR}/l2rib.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/l2rib.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
