# The vendor's hosts. By default they lie under a name that nobody can register (RFC 2606).
# Linux has an update feed of its own, on a host of its own.
if(APPLE)
  set(defaultDownloadHost download.veltrion.example)
else()
  set(defaultDownloadHost linux.download.veltrion.example)
endif()
set(TARNLINK_DOWNLOAD_HOST ${defaultDownloadHost} CACHE STRING "Host that update manifests come from")
set(TARNLINK_SUPPORT_HOST support.veltrion.example CACHE STRING "Host of the release notes and of the support page")

foreach(host TARNLINK_DOWNLOAD_HOST TARNLINK_SUPPORT_HOST)
  if(NOT ${host} MATCHES "^[a-z0-9]([a-z0-9-]*[a-z0-9])?(\\.[a-z0-9]([a-z0-9-]*[a-z0-9])?)+$")
    message(FATAL_ERROR "${host} is no host name: \"${${host}}\"")
  endif()
endforeach()
