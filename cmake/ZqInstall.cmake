# What `cmake --install` lays out:
#   lib/libzqvstwrap.so*            the library hosts load
#   lib/zqvstwrap/plugins/*.so      the example plug-ins (test plug-ins stay in the build)
#   bin/zqvst, bin/zqplugcheck      command-line programs
#   lib/zqprobe, lib/zqvstserver    helper programs the library starts
#   include/zqvstwrap/...           public headers for host developers
#   lib/pkgconfig/zqvstwrap.pc      pkg-config file
#   lib/cmake/ZqVstWrap/...         CMake package file
#   share/doc/zqvstwrap/README.md
include(CMakePackageConfigHelpers)

foreach(program zqvst zqplugcheck)
  if(TARGET ${program})
    install(TARGETS ${program} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  endif()
endforeach()
if(TARGET zqvst AND EXISTS ${PROJECT_SOURCE_DIR}/tools/zqvst/zqvst.1)
  install(FILES ${PROJECT_SOURCE_DIR}/tools/zqvst/zqvst.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endif()
# Helper programs the library starts are found next to the library itself.
foreach(helper zqvstserver zqprobe)
  if(TARGET ${helper})
    install(TARGETS ${helper} RUNTIME DESTINATION ${CMAKE_INSTALL_LIBDIR})
  endif()
endforeach()

foreach(example zqgain zqdelay zqchunk zqbiquad)
  if(TARGET ${example})
    install(TARGETS ${example} LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/zqvstwrap/plugins)
  endif()
endforeach()

# Public headers: the interfaces and records a host needs.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/base/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/zqvstwrap/base
  FILES_MATCHING PATTERN "*.h")
install(DIRECTORY ${PROJECT_SOURCE_DIR}/platform/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/zqvstwrap/platform
  FILES_MATCHING PATTERN "*.h" PATTERN "linux" EXCLUDE PATTERN "windows" EXCLUDE)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/kernel/com/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/zqvstwrap/kernel/com
  FILES_MATCHING PATTERN "*.h")
if(EXISTS ${PROJECT_SOURCE_DIR}/kernel/audio)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/kernel/audio/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/zqvstwrap/kernel/audio
    FILES_MATCHING PATTERN "*.h" PATTERN "variants" EXCLUDE)
endif()
if(EXISTS ${PROJECT_SOURCE_DIR}/mediafw)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/mediafw/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/zqvstwrap/mediafw
    FILES_MATCHING PATTERN "*.h")
endif()
install(DIRECTORY ${PROJECT_SOURCE_DIR}/aplugins/zqvstwrap/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/zqvstwrap/aplugins/zqvstwrap
  FILES_MATCHING PATTERN "i*.h" PATTERN "vst2abi.h" PATTERN "zqvstmapping.h" PATTERN "mediaparams.h"
  PATTERN "mfxtempo.h")

if(TARGET zqvstwrap)
  install(TARGETS zqvstwrap EXPORT ZqVstWrapTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/zqvstwrap)
  install(EXPORT ZqVstWrapTargets NAMESPACE ZqVstWrap::
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/ZqVstWrap)
  configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/ZqVstWrapConfig.cmake.in
    ${CMAKE_BINARY_DIR}/ZqVstWrapConfig.cmake
    INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/ZqVstWrap)
  write_basic_package_version_file(${CMAKE_BINARY_DIR}/ZqVstWrapConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
  install(FILES ${CMAKE_BINARY_DIR}/ZqVstWrapConfig.cmake ${CMAKE_BINARY_DIR}/ZqVstWrapConfigVersion.cmake
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/ZqVstWrap)
endif()

configure_file(${PROJECT_SOURCE_DIR}/cmake/zqvstwrap.pc.in ${CMAKE_BINARY_DIR}/zqvstwrap.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/zqvstwrap.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
install(FILES ${PROJECT_SOURCE_DIR}/README.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
if(EXISTS ${PROJECT_SOURCE_DIR}/plugins/README.md)
  install(FILES ${PROJECT_SOURCE_DIR}/plugins/README.md DESTINATION ${CMAKE_INSTALL_DOCDIR} RENAME plugins.md)
endif()
