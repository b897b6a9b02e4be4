# Where `cmake --install` puts things, and the install rule every library uses.
include(GNUInstallDirs)

set(VYRPTP_SOVERSION ${PROJECT_VERSION_MAJOR})
# Headers keep their paths ("Kiv/Entity.h", "VyrPtp/AggregatorSmNi.h") below a
# directory of the project's own, away from other packages' headers.
set(VYRPTP_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/vyrptp)
# Installed programs and libraries find the project's libraries next to them,
# wherever the tree is installed.
set(CMAKE_INSTALL_RPATH $ORIGIN $ORIGIN/../${CMAKE_INSTALL_LIBDIR})

# vyrptp_install(<target> <header directory> [<subdirectory of include/>]):
# the library with its SOVERSION (runtime package, and the development link
# in the development package) and the headers below <header directory>.
function(vyrptp_install target headers)
  set_target_properties(${target} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${VYRPTP_SOVERSION})
  install(TARGETS ${target} EXPORT VyrPtpTargets
          LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development)
  install(DIRECTORY ${headers}/ DESTINATION ${VYRPTP_INCLUDEDIR}/${ARGN} COMPONENT development
          FILES_MATCHING PATTERN "*.h")
endfunction()
