# What a host's developer needs: the library, its C headers, and the two ways to find them.
# The tool and the simulator install theirs beside their targets.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/${PROJECT_NAME})

install(TARGETS morvu_ssd EXPORT ${PROJECT_NAME}Targets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY include/morvu DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

# The schemas of all messages.
install(FILES schema/messages.xsd schema/names.xsd schema/recording.xsd
  DESTINATION ${CMAKE_INSTALL_DATADIR}/morvu-ssdfeatures)

# The list that the header of status codes names.
install(FILES docs/status-codes.md DESTINATION ${CMAKE_INSTALL_DOCDIR})

# The way from the folder of the .pc file up to the prefix: the installation can be moved.
file(RELATIVE_PATH prefix_from_pkgconfig /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(cmake/morvu-ssdfeatures.pc.in morvu-ssdfeatures.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/morvu-ssdfeatures.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install(EXPORT ${PROJECT_NAME}Targets NAMESPACE Morvu:: DESTINATION ${package_folder}
  FILE ${PROJECT_NAME}Config.cmake)
write_basic_package_version_file(${PROJECT_NAME}ConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${PROJECT_NAME}ConfigVersion.cmake
  DESTINATION ${package_folder})

# The module for Python, for every version of it: nothing in it is compiled.
set(MORVU_PYTHON_DIR lib/python3/dist-packages CACHE STRING
  "Where the Python module goes below the prefix; empty for nowhere")
if(MORVU_PYTHON_DIR)
  install(DIRECTORY python/morvu DESTINATION ${MORVU_PYTHON_DIR}
    FILES_MATCHING PATTERN "*.py" PATTERN "py.typed" PATTERN "__pycache__" EXCLUDE)
endif()
