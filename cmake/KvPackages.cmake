# The Debian packages: runtime libraries and development files for either Qt, and programs. See scripts/package.

set(KV_APPS_DIR ${CMAKE_INSTALL_LIBDIR}/kvprojectdboperator CACHE STRING "")
set(CMAKE_SKIP_INSTALL_RPATH ON) # the system's own folders need none
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON) # or the length of the build folder's name stays behind

if(QT_MAJOR_VERSION EQUAL 5)
  set(runtime_package libkvprojectdboperator${PROJECT_VERSION_MAJOR})
  set(development_package libkvprojectdboperator-dev)
  set(qt_development_package qtbase5-dev)
else()
  set(runtime_package libkvprojectdboperatorqt6-${PROJECT_VERSION_MAJOR})
  set(development_package libkvprojectdboperatorqt6-dev)
  set(qt_development_package qt6-base-dev)
endif()
set(apps_package kvprojectdboperator-apps)

set(CPACK_GENERATOR DEB)
set(CPACK_COMPONENTS_ALL runtime development)
if(KV_BUILD_APPS)
  list(APPEND CPACK_COMPONENTS_ALL apps)
endif()
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_PACKAGE_NAME kvprojectdboperator)
set(CPACK_PACKAGE_CONTACT "KvProjectDbOperator maintainers <maintainers@kvprojectdboperator.example>")
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)

set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "The library and the three libraries of its host.")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${runtime_package})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
# Qt loads the driver at run time, which no scan of the libraries finds.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS libqt${QT_MAJOR_VERSION}sql${QT_MAJOR_VERSION}-sqlite)
# A trigger runs ldconfig. The two scripts are named and do not exist, or CPack would add its own, which do so again
# and stay behind when the package is removed.
file(WRITE ${PROJECT_BINARY_DIR}/triggers "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
  ${PROJECT_BINARY_DIR}/triggers ${PROJECT_BINARY_DIR}/postinst ${PROJECT_BINARY_DIR}/postrm)

set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "Headers, the files with which CMake and pkg-config find the libraries, the
 documentation, a small host as an example, the sources of flightdesk, and
 descriptions of all tables.")
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS runtime)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME ${development_package})
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${qt_development_package} (>= ${KV_QT_LEAST})")

set(CPACK_COMPONENT_APPS_DESCRIPTION "The host flightdesk, the reference server flightserver, and the
 downloader that hosts start.")
set(CPACK_COMPONENT_APPS_DEPENDS runtime)
set(CPACK_DEBIAN_APPS_PACKAGE_NAME ${apps_package})
set(CPACK_DEBIAN_APPS_PACKAGE_SECTION misc)

if(KV_BUILD_APPS)
  include(${CMAKE_CURRENT_LIST_DIR}/KvDesktop.cmake)
endif()

# The pages, and the sources that they point to, keep their places towards each other.
set(documentation ${CMAKE_INSTALL_DATADIR}/doc/${development_package})
install(FILES README.md CHANGELOG.md CONTRIBUTING.md DESTINATION ${documentation} COMPONENT development)
install(DIRECTORY docs DESTINATION ${documentation} COMPONENT development
  FILES_MATCHING PATTERN *.md PATTERN *.svg PATTERN *.png)
install(DIRECTORY examples/minimal-host DESTINATION ${documentation}/examples COMPONENT development)
install(DIRECTORY apps/flightdesk DESTINATION ${documentation}/apps COMPONENT development
  FILES_MATCHING PATTERN *.h PATTERN *.cpp PATTERN *.txt PATTERN *.qrc)

string(TIMESTAMP now "%a, %d %b %Y %H:%M:%S +0000" UTC) # of SOURCE_DATE_EPOCH, if that is set
file(WRITE ${PROJECT_BINARY_DIR}/changelog.Debian
"kvprojectdboperator (${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}) bookworm; urgency=medium

  * Release ${PROJECT_VERSION}.

 -- ${CPACK_PACKAGE_CONTACT}  ${now}
")
execute_process(COMMAND gzip -9nf ${PROJECT_BINARY_DIR}/changelog.Debian COMMAND_ERROR_IS_FATAL ANY)
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  set(folder ${CMAKE_INSTALL_DATADIR}/doc/${${component}_package})
  install(FILES ${PROJECT_BINARY_DIR}/changelog.Debian.gz DESTINATION ${folder} COMPONENT ${component})
  install(FILES LICENSE DESTINATION ${folder} RENAME copyright COMPONENT ${component})
  set(overrides ${PROJECT_BINARY_DIR}/overrides/${${component}_package})
  file(WRITE ${overrides} "# No bug asks for a package that is not uploaded to Debian.\ninitial-upload-closes-no-bugs\n")
  if(component STREQUAL development)
    file(APPEND ${overrides} "# The pages link to it by this name.\nwrong-name-for-upstream-changelog\n")
  endif()
  install(FILES ${overrides} DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides COMPONENT ${component})
endforeach()

include(CPack)
