# What the test directories share: how a test program is declared, and the check that none is forgotten.

include(GoogleTest)

# Slow builds (sanitizers, coverage) multiply every test's time limit by this.
set(CDS_TEST_TIME_FACTOR 1 CACHE STRING "Factor on every test's time limit")

# Limits in seconds, per test case. They are generous: only a failure reaches them.
set(CDS_TEST_TIME_unit 20)
set(CDS_TEST_TIME_property 60)
set(CDS_TEST_TIME_fault 60)
set(CDS_TEST_TIME_conformance 30)
set(CDS_TEST_TIME_scenario 60)
set(CDS_TEST_TIME_integration 120)
set(CDS_TEST_TIME_install 600)
set(CDS_TEST_TIME_soak 3600)

# cds_test_time(<variable> <label>): the time limit of a test with that label.
function(cds_test_time out label)
    if(NOT DEFINED CDS_TEST_TIME_${label})
        message(FATAL_ERROR "No such kind of test: ${label}")
    endif()
    math(EXPR seconds "${CDS_TEST_TIME_${label}} * ${CDS_TEST_TIME_FACTOR}")
    set(${out} ${seconds} PARENT_SCOPE)
endfunction()

# cds_add_test(<name> LABELS <kind> SOURCES <file>... [LIBS <library>...] [PREFIX <text>] [TIME <seconds>])
#
# A GoogleTest program whose cases are CTest tests. The kind is their label and gives the time limit; a property
# program gets rapidcheck too. Programs run in the directory tests/, and CDS_TEST_DATA names its data directory.
# PREFIX goes before each case's name: it tells apart two programs that hold the same cases.
function(cds_add_test name)
    cmake_parse_arguments(arg "" "PREFIX;TIME" "LABELS;SOURCES;LIBS" ${ARGN})
    if(NOT arg_LABELS OR NOT arg_SOURCES OR arg_UNPARSED_ARGUMENTS)
        message(FATAL_ERROR "cds_add_test(${name}) needs LABELS and SOURCES: ${arg_UNPARSED_ARGUMENTS}")
    endif()
    # Test discovery loses a list of labels on its way into the generated script, and with it the time limit.
    list(LENGTH arg_LABELS count)
    if(NOT count EQUAL 1)
        message(FATAL_ERROR "cds_add_test(${name}): a test program has one label, its kind")
    endif()
    set(kind ${arg_LABELS})
    if(NOT arg_TIME)
        cds_test_time(arg_TIME ${kind})
    endif()

    add_executable(${name} ${arg_SOURCES})
    target_link_libraries(${name} PRIVATE ${arg_LIBS} cds_warnings GTest::gmock GTest::gtest_main)
    if(kind STREQUAL "property")
        target_link_libraries(${name} PRIVATE rapidcheck)
    endif()
    target_compile_definitions(${name} PRIVATE CDS_TEST_DATA="${PROJECT_SOURCE_DIR}/tests/data")
    gtest_discover_tests(
        ${name}
        TEST_PREFIX "${arg_PREFIX}"
        WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}/tests
        DISCOVERY_MODE PRE_TEST
        DISCOVERY_TIMEOUT 60
        PROPERTIES LABELS ${kind} TIMEOUT ${arg_TIME})
endfunction()

function(cds_collect_sources out directory)
    get_property(targets DIRECTORY ${directory} PROPERTY BUILDSYSTEM_TARGETS)
    set(found)
    foreach(target IN LISTS targets)
        get_target_property(sources ${target} SOURCES)
        get_target_property(base ${target} SOURCE_DIR)
        foreach(source IN LISTS sources)
            if(source MATCHES "\\.cpp$")
                get_filename_component(path ${source} ABSOLUTE BASE_DIR ${base})
                list(APPEND found ${path})
            endif()
        endforeach()
    endforeach()
    get_property(children DIRECTORY ${directory} PROPERTY SUBDIRECTORIES)
    foreach(child IN LISTS children)
        cds_collect_sources(below ${child})
        list(APPEND found ${below})
    endforeach()
    set(${out} ${found} PARENT_SCOPE)
endfunction()

# Configuring fails on a test or fuzzer source that belongs to no target: nobody would notice that it never runs.
function(cds_check_tests_are_built)
    cds_collect_sources(built ${PROJECT_SOURCE_DIR})
    file(GLOB_RECURSE wanted CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/tests/*Test.cpp
         ${PROJECT_SOURCE_DIR}/fuzz/*Fuzzer.cpp)
    if(built)
        list(REMOVE_ITEM wanted ${built})
    endif()
    if(wanted)
        list(JOIN wanted "\n  " lines)
        message(FATAL_ERROR "In no target, so never run:\n  ${lines}")
    endif()
endfunction()
