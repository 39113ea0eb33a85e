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

# One manual page, which each function's name leads to.
install(FILES docs/man/morvu_ssd_features.3 DESTINATION ${CMAKE_INSTALL_MANDIR}/man3)
file(STRINGS cmake/exports.map functions REGEX "^    [A-Z]")
foreach(line ${functions})
  string(REGEX MATCH "[A-Za-z]+" name "${line}")
  file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/man3/${name}.3 ".so man3/morvu_ssd_features.3\n")
endforeach()
install(DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/man3 DESTINATION ${CMAKE_INSTALL_MANDIR})

# An installation can be moved: its .pc file tells the way from its own folder up to the prefix.
# In /usr nothing moves, and a plain prefix lets pkg-config leave out the system's own folders.
function(morvu_configure_pc folder pc_prefix pc_libdir)
  configure_file(cmake/morvu-ssdfeatures.pc.in ${folder}/morvu-ssdfeatures.pc @ONLY)
endfunction()
file(RELATIVE_PATH prefix_from_pkgconfig /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
morvu_configure_pc(pkgconfig \${pcfiledir}/${prefix_from_pkgconfig} \${pcfiledir}/..)
morvu_configure_pc(pkgconfig/usr /usr \${prefix}/${CMAKE_INSTALL_LIBDIR})
install(CODE "
  set(folder \"${CMAKE_CURRENT_BINARY_DIR}/pkgconfig\")
  if(CMAKE_INSTALL_PREFIX STREQUAL \"/usr\")
    string(APPEND folder /usr)
  endif()
  file(INSTALL \"\${folder}/morvu-ssdfeatures.pc\"
    DESTINATION \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/pkgconfig\")")

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

# All that is installed, without the tests.
add_custom_target(morvu_installed DEPENDS morvu_ssd morvussd morvu-sign morvussd_documentation
  simdrives_documentation morvu_simdrives morvu_simulator_preload adapter_library)
