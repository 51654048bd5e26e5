# karven_library(<name> DIR <folder> [DEPS <targets>...])
# One static library from every .cpp in the folder (not recursive), so a new source file needs no
# edit here. Headers are included as "<folder>/<file>.h" from the src/ root.
function(karven_library name)
  cmake_parse_arguments(ARG "" "DIR" "DEPS" ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS ${ARG_DIR}/*.cpp)
  if(NOT sources)
    # A folder whose first code has not landed yet still gives a linkable target.
    set(sources ${PROJECT_SOURCE_DIR}/cmake/empty.cpp)
  endif()
  add_library(${name} STATIC ${sources})
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR}/src)
  target_link_libraries(${name} PUBLIC ${ARG_DEPS})
endfunction()

# karven_test(<folder> [DEPS <targets>...])
# One GoogleTest binary per tested folder from every .cpp in tests/<folder>. Tests run with the
# folder as working directory so golden files are found by relative path.
function(karven_test folder)
  cmake_parse_arguments(ARG "" "" "DEPS" ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${folder}/*.cpp)
  if(NOT sources)
    return()
  endif()
  set(target test_${folder})
  add_executable(${target} ${sources})
  target_link_libraries(${target} PRIVATE ${ARG_DEPS} GTest::gtest GTest::gtest_main GTest::gmock)
  target_compile_definitions(${target} PRIVATE
    KARVEN_SOURCE_DIR="${PROJECT_SOURCE_DIR}"
    KARVEN_TEST_DIR="${CMAKE_CURRENT_SOURCE_DIR}/${folder}"
    KARVEN_VALIDATION_DIR="${PROJECT_SOURCE_DIR}/tests/data/validation"
    KARVEN_BINARY="$<TARGET_FILE:karven>")
  # Some tests run the tool itself.
  add_dependencies(${target} karven)
  gtest_discover_tests(${target}
    WORKING_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR}/${folder}
    DISCOVERY_TIMEOUT 60
    # a walk that never ends fails, not hangs; runs of the tool keep their table cache here
    PROPERTIES LABELS unit TIMEOUT 300
      ENVIRONMENT "XDG_CACHE_HOME=${CMAKE_CURRENT_BINARY_DIR}/cache")
endfunction()
