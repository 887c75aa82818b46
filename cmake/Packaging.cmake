# Debian packages made by CPack from the components of the install rules
# (./build.sh package): the library, its development files, and the tools.
# Dependencies on other packages are computed by dpkg-shlibdeps, not typed.

# The Qt 6 library installs beside the Qt 5 one, and so do its packages; the
# tools are built once, against the Qt the build chose. A name that ends in a
# digit takes a hyphen before the soname's version.
if(TT_NAME_SUFFIX)
    set(tt_library_package libtessivanetemplate${TT_NAME_SUFFIX}-${PROJECT_VERSION_MAJOR})
    set(tt_qt_development "qt6-base-dev, qt6-5compat-dev")
else()
    set(tt_library_package libtessivanetemplate${PROJECT_VERSION_MAJOR})
    set(tt_qt_development qtbase5-dev)
endif()
set(tt_development_package libtessivanetemplate${TT_NAME_SUFFIX}-dev)
set(tt_tools_package tessivane-template)
set(tt_release 1)
set(tt_exact_library "${tt_library_package} (= ${PROJECT_VERSION}-${tt_release})")

# Every package carries the copyright and changelog Debian asks for.
execute_process(COMMAND gzip -9n -c ${CMAKE_CURRENT_SOURCE_DIR}/cmake/debian/changelog
                OUTPUT_FILE ${CMAKE_CURRENT_BINARY_DIR}/changelog.Debian.gz)
foreach(component library development tools)
    install(FILES cmake/debian/copyright ${CMAKE_CURRENT_BINARY_DIR}/changelog.Debian.gz
            DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${tt_${component}_package}
            COMPONENT ${component})
endforeach()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME tessivane-template)
set(CPACK_PACKAGE_CONTACT "TessivaneTemplate developers <tessivane-template@example.org>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL library development tools)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${tt_release})
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The tools' own library is found in the build tree; the exact version is required below.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_CURRENT_BINARY_DIR})
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME ${tt_library_package})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
# The library directory is in the dynamic linker's cache: refresh it by trigger.
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_SOURCE_DIR}/cmake/debian/triggers)
set(CPACK_COMPONENT_LIBRARY_DESCRIPTION
    "library that turns text templates into configuration files
A host program configures one engine (a registry, a registry root, comment
marks, tag handlers) and processes a template file into an output file:
commands between two %% marks are replaced by registry values, tags,
conditional blocks, included files and command output.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME ${tt_development_package})
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${tt_exact_library}, ${tt_qt_development}")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
    "development files for the template library
Headers, the CMake package and the pkg-config file for building programs
against the template library.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME ${tt_tools_package})
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS ${tt_exact_library})
set(CPACK_COMPONENT_TOOLS_DESCRIPTION
    "render configuration files from templates, and keep them in step
tessivane-template renders one template into a file, which it replaces only
whole. tessivane-sync keeps many files in step with registry files and with
etcd: it checks each file before it replaces the live one, and reloads the
service after. Man pages, bash completion and a systemd unit are included.")

include(CPack)
