# Installs the build into a prefix of its own, builds examples/embed against that copy, by CMake's package and by
# pkg-config, and runs both on a real file. What a server's build needs and an install forgets is found here.
set(work ${buildDir}/outside)
set(prefix ${work}/prefix)
file(REMOVE_RECURSE ${work})
file(MAKE_DIRECTORY ${work})

function(run)
    execute_process(COMMAND ${ARGV} RESULT_VARIABLE status OUTPUT_VARIABLE text ERROR_VARIABLE text)
    if(NOT status EQUAL 0)
        list(JOIN ARGV " " command)
        message(FATAL_ERROR "${command}\n${text}\nended with ${status}")
    endif()
    set(output "${text}" PARENT_SCOPE)
endfunction()

run(${CMAKE_COMMAND} --install ${buildDir} --prefix ${prefix})

file(GLOB_RECURSE headers RELATIVE ${prefix}/${includeDir}/kxdcm ${prefix}/${includeDir}/*)
list(SORT headers)
if(NOT "${headers}" STREQUAL "KXCustomFields.h;KXItem.h;QVDate.h;kxmap.h")
    message(FATAL_ERROR "the four public headers should be installed and no other, but there are: ${headers}")
endif()
if(hasTool)
    run(${prefix}/${binDir}/kxmap --help)
endif()

run(${CMAKE_COMMAND} -G ${generator} -S ${sourceDir}/examples/embed -B ${work}/build
    -D CMAKE_PREFIX_PATH=${prefix}
    -D CMAKE_CXX_COMPILER=${compiler}
    -D CMAKE_BUILD_TYPE=${buildType}
    -D "CMAKE_CXX_FLAGS=${flags}")
run(${CMAKE_COMMAND} --build ${work}/build)

run(${CMAKE_COMMAND} -G ${generator} -S ${sourceDir}/tests/outside/consumer -B ${work}/consumer
    -D CMAKE_PREFIX_PATH=${prefix}
    -D CMAKE_CXX_COMPILER=${compiler}
    -D CMAKE_BUILD_TYPE=${buildType}
    -D "CMAKE_CXX_FLAGS=${flags}")
run(${CMAKE_COMMAND} --build ${work}/consumer)
run(${work}/consumer/seventeen)

# The sanitizers' runtimes would have to be in the host, which has none of them.
if(NOT "${flags}" MATCHES "-fsanitize")
    run(${work}/consumer/host ${work}/consumer/plugin.so)
    if(NOT output MATCHES "coerce\\(\\) says 0, logger 7, errorlogs 8, gseed 9, calls 0\n")
        message(FATAL_ERROR "a plug-in and its host share names: ${output}")
    endif()
    run(${nm} -D --defined-only ${work}/consumer/plugin.so)
    string(REGEX REPLACE "[0-9a-f]+ [A-Za-z] " "" exported "${output}")
    # Of the standard library's templates the plug-in may have instances that each program shares by design.
    string(REGEX REPLACE "_ZN?K?S[A-Za-z0-9_]*\n" "" exported "${exported}")
    if(NOT "${exported}" STREQUAL "coerce\n")
        message(FATAL_ERROR "a plug-in exports more than its own function:\n${output}")
    endif()
endif()

set(ENV{PKG_CONFIG_PATH} ${prefix}/${libDir}/pkgconfig)
run(pkg-config --cflags --libs kxdcm)
separate_arguments(kxdcmFlags UNIX_COMMAND "${output}")
separate_arguments(flags UNIX_COMMAND "${flags}")
run(${compiler} -std=c++20 ${flags} ${sourceDir}/examples/embed/main.cc ${kxdcmFlags} -o ${work}/embed-by-pkg-config)

set(ENV{DICOM_VAR} ${CMAKE_CURRENT_LIST_DIR}/var)
foreach(program ${work}/build/embed ${work}/embed-by-pkg-config)
    run(${program} CT_ROOM1 ${dataDir}/test_files/CT_small.dcm ${work}/out.dcm)
    # pre writes a variable, the AE title's mapping reads it, post adds the end: all three were loaded, in this order.
    if(NOT output MATCHES "Patient's Name: CompressedSamples\\^CT1 -> PRE CT_ROOM1 POST\n")
        message(FATAL_ERROR "${program} said:\n${output}")
    endif()
    run(${program} CT_ROOM1 ${work}/out.dcm ${work}/again.dcm) # what it wrote can be read
    if(NOT output MATCHES "Patient's Name: PRE CT_ROOM1 POST -> PRE CT_ROOM1 POST\n")
        message(FATAL_ERROR "${program} said of its own output:\n${output}")
    endif()
endforeach()
