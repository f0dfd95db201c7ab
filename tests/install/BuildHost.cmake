# Installs the build, moves what was installed, and builds and runs the example host there.

function(run)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
    message("${output}")
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "failed with ${result}: ${ARGN}")
    endif()
    set(output "${output}" PARENT_SCOPE)
endfunction()

set(installed ${WORK_DIR}/installed)
set(prefix ${WORK_DIR}/moved)
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})
run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${installed})
file(RENAME ${installed} ${prefix})

if(WAY STREQUAL "find_package")
    run(${CMAKE_COMMAND} -G ${GENERATOR} -S ${SOURCE_DIR}/examples -B ${WORK_DIR}/build -DCMAKE_PREFIX_PATH=${prefix}
        -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_CXX_FLAGS=${CXX_FLAGS} -DCMAKE_CXX_COMPILER_LAUNCHER=${LAUNCHER})
    run(${CMAKE_COMMAND} --build ${WORK_DIR}/build)
    set(host ${WORK_DIR}/build/WatchOneCall)
else()
    set(ENV{PKG_CONFIG_PATH} ${prefix}/${LIBDIR}/pkgconfig)
    # A relocated tree: the prefix is where the .pc file is, not what it says.
    run(pkg-config --define-prefix --cflags --libs cdsstore cdssupport)
    separate_arguments(flags UNIX_COMMAND "${output}")
    separate_arguments(build_flags UNIX_COMMAND "${CXX_FLAGS}")
    set(host ${WORK_DIR}/WatchOneCall)
    run(${CXX} -std=c++20 ${build_flags} ${SOURCE_DIR}/examples/WatchOneCall.cpp -o ${host} ${flags}
        -Wl,-rpath,${prefix}/${LIBDIR})
endif()

# It writes its log where it runs.
execute_process(COMMAND ${host} WORKING_DIRECTORY ${WORK_DIR} RESULT_VARIABLE result OUTPUT_VARIABLE output
                ERROR_VARIABLE output)
message("${output}")
if(NOT result EQUAL 0)
    message(FATAL_ERROR "the host ended with ${result}")
endif()
if(NOT output MATCHES "CALLERID = .*COMMENT = .*2 changes")
    message(FATAL_ERROR "the host was not told what changed")
endif()
