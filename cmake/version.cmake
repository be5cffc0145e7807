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

# So do the packages.
foreach(place IN ITEMS
        "bindings/python/trkapi/__init__.py|__version__ = \"([0-9.]+)\""
        "bindings/r/DESCRIPTION|Version: ([0-9.]+)"
        "debian/changelog|^trkapi \\(([0-9.]+)\\)")
    string(REGEX MATCH "^([^|]+)\\|(.*)$" place "${place}")
    set(trkapi_place ${CMAKE_MATCH_1})
    set(trkapi_pattern ${CMAKE_MATCH_2})
    file(READ ${PROJECT_SOURCE_DIR}/${trkapi_place} trkapi_text)
    string(REGEX MATCH "${trkapi_pattern}" trkapi_text "${trkapi_text}")
    if(NOT CMAKE_MATCH_1 STREQUAL PROJECT_VERSION)
        message(FATAL_ERROR "${trkapi_place} says that it is version \"${CMAKE_MATCH_1}\", "
            "CMakeLists.txt ${PROJECT_VERSION}")
    endif()
endforeach()
