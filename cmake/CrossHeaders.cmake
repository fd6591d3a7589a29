# The header-only libraries the cross build takes from the host's Debian
# packages, gathered as links in one directory so that the cross compiler
# sees them and nothing else of /usr/include.
set(ZEL_CROSS_HEADERS_DIR ${CMAKE_BINARY_DIR}/_cross_headers)
file(MAKE_DIRECTORY ${ZEL_CROSS_HEADERS_DIR})
foreach(entry fmt toml++ CLI nlohmann)
  if(EXISTS /usr/include/${entry} AND NOT EXISTS ${ZEL_CROSS_HEADERS_DIR}/${entry})
    file(CREATE_LINK /usr/include/${entry} ${ZEL_CROSS_HEADERS_DIR}/${entry} SYMBOLIC)
  endif()
endforeach()
