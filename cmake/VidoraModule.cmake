# Helpers that give every module the same shape: sources/<module>/{include,src,tests}.

# vidora_module(NAME <target> [DEPS <targets>...] [PRIVATE_DEPS <targets>...])
# Builds a static library from every .cc under src/, exports include/, keeps src/ private,
# and, when tests are on, one GoogleTest executable <target>_tests from tests/*_test.cc.
function(vidora_module)
  cmake_parse_arguments(M "" "NAME" "DEPS;PRIVATE_DEPS;TEST_DEPS" ${ARGN})
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/src/*.cc)
  add_library(${M_NAME} STATIC ${sources})
  target_include_directories(${M_NAME}
    PUBLIC ${CMAKE_CURRENT_SOURCE_DIR}/include
    PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/src)
  target_link_libraries(${M_NAME} PUBLIC ${M_DEPS} Threads::Threads PRIVATE ${M_PRIVATE_DEPS})

  file(GLOB test_sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/tests/*.cc)
  if(VIDORA_BUILD_TESTS AND test_sources)
    add_executable(${M_NAME}_tests ${test_sources})
    target_include_directories(${M_NAME}_tests PRIVATE
      ${CMAKE_CURRENT_SOURCE_DIR}/src ${CMAKE_CURRENT_SOURCE_DIR}/tests)
    target_link_libraries(${M_NAME}_tests PRIVATE ${M_NAME} ${M_TEST_DEPS} GTest::gtest_main GTest::gmock)
    target_compile_definitions(${M_NAME}_tests PRIVATE
      VIDORA_SOURCE_DIR="${PROJECT_SOURCE_DIR}"
      VIDORA_FIXTURES_DIR="${PROJECT_SOURCE_DIR}/test/fixtures")
    gtest_discover_tests(${M_NAME}_tests DISCOVERY_TIMEOUT 60
      PROPERTIES ENVIRONMENT "ASAN_OPTIONS=detect_leaks=1")
  endif()
endfunction()

# Where the host's Node-API headers and node-addon-api live; found locally, never downloaded.
function(vidora_find_node_headers)
  if(NOT NODE_INCLUDE_DIR)
    execute_process(COMMAND node -p "require('path').resolve(process.execPath, '..', '..', 'include', 'node')"
      OUTPUT_VARIABLE dir OUTPUT_STRIP_TRAILING_WHITESPACE)
    if(NOT EXISTS "${dir}/node_api.h")
      foreach(candidate /usr/include/node /usr/local/include/node)
        if(EXISTS "${candidate}/node_api.h")
          set(dir ${candidate})
        endif()
      endforeach()
    endif()
    if(NOT EXISTS "${dir}/node_api.h")
      execute_process(COMMAND node -p "require('node-api-headers').include_dir"
        WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
        OUTPUT_VARIABLE dir OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
    endif()
    if(NOT EXISTS "${dir}/node_api.h")
      message(FATAL_ERROR "Node-API headers not found: install the nodejs headers (Debian: libnode-dev) or the npm package node-api-headers")
    endif()
    set(NODE_INCLUDE_DIR ${dir} CACHE PATH "Node-API headers")
  endif()
  if(NOT NODE_ADDON_API_DIR)
    execute_process(COMMAND node -p "require('node-addon-api').include_dir"
      WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
      OUTPUT_VARIABLE dir OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
    if(NOT IS_ABSOLUTE "${dir}")
      set(dir ${PROJECT_SOURCE_DIR}/${dir})
    endif()
    if(NOT EXISTS "${dir}/napi.h")
      message(FATAL_ERROR "node-addon-api not found: run npm install")
    endif()
    set(NODE_ADDON_API_DIR ${dir} CACHE PATH "node-addon-api headers")
  endif()
endfunction()
