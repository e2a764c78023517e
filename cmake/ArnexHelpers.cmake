# Helpers that add libraries, programs and tests with the project's warnings and sanitizers,
# so that no target forgets them.

function(arnex_apply_options target)
    target_compile_options(${target} PRIVATE -Wall -Wextra)
    if(ARNEX_WERROR)
        target_compile_options(${target} PRIVATE -Werror)
    endif()
    if(ARNEX_SANITIZE)
        string(REPLACE ";" "," _san "${ARNEX_SANITIZE}")
        target_compile_options(${target} PRIVATE -fsanitize=${_san} -fno-omit-frame-pointer)
        target_link_options(${target} PRIVATE -fsanitize=${_san})
    endif()
endfunction()

# Precompiled headers. GCC spends most of a file's time in the Qt and C++ library headers, so they are
# compiled once for each kind of code: arnex_pch for the libraries on Qt Core, arnex_pch_widgets for those
# on Qt Widgets, arnex_test_pch for the tests (with GoogleTest). Each is made by a small object library with
# the same flags as the code that reuses it; GCC refuses a header made with other flags (-Winvalid-pch).
# The probe library and the plug-ins (C++ library only) have none: with a precompiled <string>, GCC 12
# reports a false -Warray-bounds inside std::string in the probe library.
set(ARNEX_PCH_HEADERS
    <QByteArray> <QCoreApplication> <QDir> <QFile> <QFileInfo> <QHash> <QList> <QObject> <QRegularExpression>
    <QString> <QStringList> <QTimer>
    <algorithm> <atomic> <chrono> <cstring> <functional> <memory> <mutex> <string> <thread> <vector>)
set(ARNEX_PCH_WIDGETS_HEADERS
    <QAction> <QApplication> <QDialog> <QHBoxLayout> <QLabel> <QLineEdit> <QMainWindow> <QMenu> <QPushButton>
    <QVBoxLayout> <QWidget>)

# arnex_add_pch(<name> LIBS ... HEADERS ... [OPTIONS ...]): the object library that makes a precompiled header.
function(arnex_add_pch name)
    cmake_parse_arguments(ARG "" "" "LIBS;HEADERS;OPTIONS" ${ARGN})
    set(source ${CMAKE_BINARY_DIR}/pch/${name}.cpp)
    if(NOT EXISTS ${source})
        file(WRITE ${source} "// Compiles the precompiled header of ${name} and nothing else.\n")
    endif()
    add_library(${name} OBJECT ${source})
    target_link_libraries(${name} PRIVATE ${ARG_LIBS})
    target_compile_options(${name} PRIVATE ${ARG_OPTIONS})
    target_precompile_headers(${name} PRIVATE ${ARG_HEADERS})
    set_target_properties(${name} PROPERTIES AUTOMOC OFF)
    arnex_apply_options(${name})
endfunction()

# Which Qt a list of link items brings, through the link lines of the targets defined so far: WIDGETS,
# CORE or nothing.
function(_arnex_qt_level libs out)
    set(level "")
    set(seen)
    set(queue ${libs})
    while(queue)
        list(POP_FRONT queue item)
        string(REGEX REPLACE "^\\$<LINK_ONLY:(.*)>$" "\\1" item "${item}")
        if(item IN_LIST seen)
            continue()
        endif()
        list(APPEND seen ${item})
        if(item STREQUAL "Qt6::Widgets")
            set(level WIDGETS)
        elseif(item MATCHES "^Qt6::(Core|Gui)$" AND NOT level)
            set(level CORE)
        elseif(TARGET ${item} AND NOT item MATCHES "^Qt6::")
            get_target_property(more ${item} INTERFACE_LINK_LIBRARIES)
            if(more)
                list(APPEND queue ${more})
            endif()
        endif()
    endwhile()
    set(${out} ${level} PARENT_SCOPE)
endfunction()

# arnex_add_library(<name> SOURCES ... [PUBLIC_LIBS ...] [PRIVATE_LIBS ...])
# The link lines are the layering: a library sees only what it links.
# A subsystem that has only headers so far is an INTERFACE library with the same link line.
function(arnex_add_library name)
    cmake_parse_arguments(ARG "" "" "SOURCES;PUBLIC_LIBS;PRIVATE_LIBS" ${ARGN})
    if(NOT ARG_SOURCES)
        add_library(${name} INTERFACE)
        target_include_directories(${name} INTERFACE ${PROJECT_SOURCE_DIR}/src)
        target_link_libraries(${name} INTERFACE ${ARG_PUBLIC_LIBS})
        return()
    endif()
    add_library(${name} STATIC ${ARG_SOURCES})
    target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR}/src)
    target_link_libraries(${name} PUBLIC ${ARG_PUBLIC_LIBS} PRIVATE ${ARG_PRIVATE_LIBS})
    arnex_apply_options(${name})
    _arnex_qt_level("${ARG_PUBLIC_LIBS};${ARG_PRIVATE_LIBS}" qt)
    if(qt STREQUAL "WIDGETS")
        target_precompile_headers(${name} REUSE_FROM arnex_pch_widgets)
    elseif(qt STREQUAL "CORE")
        target_precompile_headers(${name} REUSE_FROM arnex_pch)
    endif()
endfunction()

# Test code compiles for build speed: without optimisation and with line tables only. The libraries under
# test keep their own flags.
set(ARNEX_TEST_OPTIONS -O0 -g1)

# arnex_add_test(<name> SOURCES ... LIBS ... [ENV ...] [LABELS ...] [TIMEOUT s])
function(arnex_add_test name)
    cmake_parse_arguments(ARG "" "TIMEOUT" "SOURCES;LIBS;ENV;LABELS" ${ARGN})
    add_executable(${name} ${ARG_SOURCES})
    target_link_libraries(${name} PRIVATE ${ARG_LIBS} GTest::gtest Qt6::Core)
    target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests ${PROJECT_SOURCE_DIR}/src)
    target_compile_options(${name} PRIVATE ${ARNEX_TEST_OPTIONS})
    # GoogleTest, the Qt Core headers and the printers of Qt values in failure messages (QtPrinters.h).
    target_precompile_headers(${name} REUSE_FROM arnex_test_pch)
    set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
    arnex_apply_options(${name})
    add_test(NAME ${name} COMMAND ${name} --gtest_brief=1)
    if(NOT ARG_TIMEOUT)
        set(ARG_TIMEOUT 300)
    endif()
    # A broken invariant (a wrong session step, a call from the wrong thread) ends any test, the program
    # that an end-to-end test starts included.
    set_tests_properties(${name} PROPERTIES TIMEOUT ${ARG_TIMEOUT}
        ENVIRONMENT "QT_QPA_PLATFORM=offscreen;ARNEX_CHECK_ABORT=1;ARNEX_BIN_DIR=${ARNEX_BIN_DIR};ARNEX_SOURCE_DIR=${PROJECT_SOURCE_DIR};${ARG_ENV}")
    if(ARG_LABELS)
        set_tests_properties(${name} PROPERTIES LABELS "${ARG_LABELS}")
    endif()
endfunction()
