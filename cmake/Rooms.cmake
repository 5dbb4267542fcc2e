# A room is a folder below src/ and a static library of all its sources.
#
#   tervano_room(NAME [FOLDER dir] [SEES room...] [PACKAGES pkg-config-module...] [LIBS target...])
#
# SEES lists the rooms whose headers it may include: the arrows of docs/architecture.md, checked
# against the include lines by tools/check_arrows.
function(tervano_room NAME)
  cmake_parse_arguments(ROOM "" "FOLDER" "SEES;PACKAGES;LIBS" ${ARGN})
  file(GLOB SOURCES CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
  add_library(tervano_${NAME} STATIC ${SOURCES})
  target_include_directories(tervano_${NAME} PUBLIC ${CMAKE_SOURCE_DIR}/src)
  foreach(SEEN ${ROOM_SEES})
    target_link_libraries(tervano_${NAME} PUBLIC tervano_${SEEN})
  endforeach()
  if(ROOM_PACKAGES)
    pkg_check_modules(${NAME}_PACKAGES REQUIRED IMPORTED_TARGET ${ROOM_PACKAGES})
    target_link_libraries(tervano_${NAME} PUBLIC PkgConfig::${NAME}_PACKAGES)
  endif()
  if(ROOM_LIBS)
    target_link_libraries(tervano_${NAME} PUBLIC ${ROOM_LIBS})
  endif()
endfunction()

# The tests of a room: every source of this folder in one GoogleTest program.
#
#   tervano_room_tests(NAME [LIBS target...] [LABEL label] [DEPENDS target...])
function(tervano_room_tests NAME)
  cmake_parse_arguments(TESTS "" "LABEL" "LIBS;DEPENDS" ${ARGN})
  if(NOT TESTS_LABEL)
    set(TESTS_LABEL unit)
  endif()
  file(GLOB SOURCES CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
  if(NOT SOURCES)
    return()
  endif()
  add_executable(${NAME}_tests ${SOURCES})
  target_include_directories(${NAME}_tests PRIVATE ${CMAKE_SOURCE_DIR})
  # Compiling is most of what a test run costs.
  target_compile_options(${NAME}_tests PRIVATE -O0)
  target_link_libraries(${NAME}_tests PRIVATE ${TESTS_LIBS} tervano_test_support GTest::gmock)
  set_target_properties(${NAME}_tests PROPERTIES
    RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
  if(TESTS_DEPENDS)
    add_dependencies(${NAME}_tests ${TESTS_DEPENDS})
  endif()
  gtest_discover_tests(${NAME}_tests TEST_PREFIX ${NAME}. DISCOVERY_MODE PRE_TEST
    PROPERTIES LABELS ${TESTS_LABEL} TIMEOUT 120)
endfunction()
