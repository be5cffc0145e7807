# The version macros of the public header name the version of the project.
set(trkapi_header ${PROJECT_SOURCE_DIR}/include/trkapi/trkapi.h)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${trkapi_header})
file(STRINGS ${trkapi_header} trkapi_header_version REGEX "^#define TRKAPI_VERSION_(MAJOR|MINOR|PATCH) [0-9]+$")
list(TRANSFORM trkapi_header_version REPLACE "^.* " "")
list(JOIN trkapi_header_version "." trkapi_header_version)
if(NOT trkapi_header_version STREQUAL PROJECT_VERSION)
    message(FATAL_ERROR
        "trkapi.h says that it is version \"${trkapi_header_version}\", CMakeLists.txt ${PROJECT_VERSION}")
endif()
