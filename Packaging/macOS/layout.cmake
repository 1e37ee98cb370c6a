# Lays out Tarnlink.app in FOLDER, in place of one that is there:
#
#   cmake -D FOLDER=folder [-D PROGRAMS=folder] [-D ICON=file.icns] -P layout.cmake
#
# Without PROGRAMS all but the programs, which is what can be checked on another system.
cmake_minimum_required(VERSION 3.22)

get_filename_component(root "${CMAKE_CURRENT_LIST_DIR}/../.." ABSOLUTE)
file(STRINGS ${root}/VERSION lines LIMIT_COUNT 2)
list(GET lines 0 TARNLINK_VERSION)
list(GET lines 1 TARNLINK_BUILD)
set(TARNLINK_OLDEST_MACOS 13.0)

if(NOT FOLDER)
  message(FATAL_ERROR "FOLDER is not set")
endif()
get_filename_component(app "${FOLDER}/Tarnlink.app" ABSOLUTE)
file(REMOVE_RECURSE ${app})
set(contents ${app}/Contents)

configure_file(${CMAKE_CURRENT_LIST_DIR}/Info.plist.in ${contents}/Info.plist @ONLY)
configure_file(${CMAKE_CURRENT_LIST_DIR}/Distribution.xml.in ${FOLDER}/Distribution.xml @ONLY)
file(WRITE ${contents}/PkgInfo "APPL????")
file(COPY ${CMAKE_CURRENT_LIST_DIR}/com.veltrion.tarnlink.daemon.plist
  DESTINATION ${contents}/Library/LaunchDaemons)
foreach(language en de)
  foreach(table Localizable InfoPlist)
    file(COPY ${root}/Resources/${language}.lproj/${table}.strings
      DESTINATION ${contents}/Resources/${language}.lproj)
  endforeach()
endforeach()
file(COPY ${CMAKE_CURRENT_LIST_DIR}/uninstall ${root}/LICENSE DESTINATION ${contents}/Resources)
if(ICON)
  configure_file(${ICON} ${contents}/Resources/Tarnlink.icns COPYONLY)
endif()
file(MAKE_DIRECTORY ${contents}/MacOS)
if(PROGRAMS)
  foreach(program TarnlinkMenu TarnlinkDaemon TarnlinkUpdater tarnlinkctl)
    file(COPY ${PROGRAMS}/${program} DESTINATION ${contents}/MacOS)
  endforeach()
endif()
