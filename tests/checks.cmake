# Tests of the tree and of what was built from it, as shell scripts.
function(record_add_check name)
  add_test(NAME check.${name} COMMAND bash ${CMAKE_SOURCE_DIR}/scripts/${ARGN})
  set_tests_properties(check.${name} PROPERTIES LABELS check TIMEOUT 300)
endfunction()

if(NOT RECORD_SANITIZE)
  # Sanitizers add names of their own.
  record_add_check(imports check-imports.sh $<TARGET_FILE:record> ${CMAKE_NM} ${CMAKE_OBJDUMP})
endif()

# The rest looks at the sources or at the host's tools: once is enough.
if(RECORD_SANITIZE OR NOT RECORD_BUILD_HOST)
  return()
endif()
record_add_check(floors check-floors.sh)
record_add_check(docs check-docs.sh)
record_add_check(tests_are_built check-tests-built.sh ${CMAKE_BINARY_DIR})
# Where nobody may mount anything it is skipped.
add_test(NAME demo.full_card COMMAND bash ${CMAKE_SOURCE_DIR}/scripts/demo-full-card.sh $<TARGET_FILE:recordctl>)
set_tests_properties(demo.full_card PROPERTIES LABELS demo TIMEOUT 120 SKIP_RETURN_CODE 77)
foreach(way cmake cmake-static pkg-config pkg-config-static)
  add_test(NAME install.${way}
    COMMAND bash ${CMAKE_SOURCE_DIR}/scripts/check-install.sh ${CMAKE_BINARY_DIR} ${way})
  set_tests_properties(install.${way} PROPERTIES LABELS install TIMEOUT 300)
endforeach()
