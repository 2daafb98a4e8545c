# Headers that many sources read are read once. There is one precompiled header for each kind of
# source; a target takes the one that fits what it links. A target that names headers of its own
# keeps those. Every source still includes what it uses: the presets `tsan` and `fuzz` build without
# precompiled headers (CMAKE_DISABLE_PRECOMPILE_HEADERS), so that a forgotten include is found there.

set(TARV_STD_HEADERS
    <algorithm> <array> <cerrno> <chrono> <functional> <map> <memory> <optional> <string>
    <string_view> <utility> <vector>)

# tarv_precompiled(name headers... [LIBS library...]): the precompiled header NAME. All that use it
# have to be compiled with the same options.
function(tarv_precompiled name)
    cmake_parse_arguments(PARSE_ARGV 1 header "" "" "LIBS")
    set(empty "${CMAKE_BINARY_DIR}/precompiled/empty.cpp")
    if(NOT EXISTS "${empty}")
        file(WRITE "${empty}" "")
    endif()
    add_library(${name} OBJECT "${empty}")
    tarv_setup(${name})
    target_link_libraries(${name} PRIVATE ${header_LIBS})
    target_precompile_headers(${name} PRIVATE ${header_UNPARSED_ARGUMENTS})
endfunction()

# tarv_reaches(target result): the libraries that TARGET links, also those that they link.
function(tarv_reaches target result)
    set(reached "")
    set(open ${target})
    while(open)
        list(POP_FRONT open next)
        if(NOT TARGET "${next}" OR next IN_LIST reached)
            continue()
        endif()
        list(APPEND reached ${next})
        if(next MATCHES "::")
            continue()
        endif()
        foreach(property LINK_LIBRARIES INTERFACE_LINK_LIBRARIES)
            get_target_property(libraries ${next} ${property})
            if(libraries)
                list(APPEND open ${libraries})
            endif()
        endforeach()
    endwhile()
    set(${result} "${reached}" PARENT_SCOPE)
endfunction()

# tarv_precompile(): gives every target of tarv_setup its precompiled header. Called last, when all
# that a target links is known.
function(tarv_precompile)
    get_property(targets GLOBAL PROPERTY TARV_TARGETS)
    tarv_precompiled(precompiled_std ${TARV_STD_HEADERS})
    if(TARV_BUILD_TESTS)
        tarv_precompiled(precompiled_test ${TARV_STD_HEADERS} <gmock/gmock.h> <gtest/gtest.h>
            LIBS GTest::gmock GTest::gtest)
    endif()
    if(TARV_BUILD_TESTS AND TARV_BUILD_GUI)
        tarv_precompiled(precompiled_qttest ${TARV_STD_HEADERS} <gmock/gmock.h> <gtest/gtest.h>
            <QApplication> <QDir> <QFile> <QMenu> <QMessageBox> <QProcess> <QPushButton>
            <QTemporaryDir> <QTimer>
            LIBS GTest::gmock GTest::gtest Qt6::Widgets)
    endif()
    foreach(target IN LISTS targets)
        get_target_property(own ${target} PRECOMPILE_HEADERS)
        if(own)
            continue()
        endif()
        tarv_reaches(${target} reached)
        if(reached MATCHES "GTest::" AND "Qt6::Widgets" IN_LIST reached)
            set(from precompiled_qttest)
        elseif(reached MATCHES "Qt6::")
            continue()
        elseif(reached MATCHES "GTest::")
            set(from precompiled_test)
        else()
            set(from precompiled_std)
        endif()
        target_precompile_headers(${target} REUSE_FROM ${from})
    endforeach()
endfunction()
