# Compiles the sizes of all types of the public headers twice, with the macros that widen off_t and time_t and
# without them; tests/public/header_sizes_test.cpp compares the two. The list of types is read from the
# headers, so that no new type can be forgotten.
file(GLOB public_headers CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/include/record/*.h)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${public_headers})
set(lines "")
foreach(header ${public_headers})
  file(STRINGS ${header} declarations REGEX "^(struct|class) [A-Za-z_0-9 ]+[:{]")
  foreach(declaration ${declarations})
    string(REGEX REPLACE "^(struct|class) (RECORD_API |RECORD_PLATFORM )?([A-Za-z_0-9]+).*" "\\3" type "${declaration}")
    string(APPEND lines "PUBLIC_TYPE(${type})\n")
  endforeach()
endforeach()
file(CONFIGURE OUTPUT public_types.inc CONTENT "${lines}" @ONLY)

add_library(header_sizes INTERFACE)
foreach(width plain wide)
  add_library(header_sizes_${width} OBJECT header_sizes.cpp)
  target_include_directories(header_sizes_${width} PRIVATE
    ${CMAKE_SOURCE_DIR}/include ${CMAKE_CURRENT_BINARY_DIR})
  target_compile_definitions(header_sizes_${width} PRIVATE PUBLIC_TYPE_SIZES=PublicTypeSizes_${width})
  target_link_libraries(header_sizes INTERFACE $<TARGET_OBJECTS:header_sizes_${width}>)
endforeach()
target_compile_definitions(header_sizes_wide PRIVATE _FILE_OFFSET_BITS=64 _TIME_BITS=64)
