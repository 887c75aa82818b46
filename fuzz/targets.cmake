# What the fuzz targets and the test suite's replay of their findings share:
# the list of targets, and a static copy of the library for them to link.

# A target's name also names its seed corpus, fuzz/corpus/NAME, and the inputs
# it once failed on, tests/data/fuzz/NAME-*. TT_FUZZ_SOURCE_NAME lists the
# source that defines its entry points, and what it needs besides the library.
set(TT_FUZZ_TARGETS tokenizer render bytepath registryfile etcdprotocol)
set(TT_FUZZ_SOURCE_tokenizer ${CMAKE_CURRENT_LIST_DIR}/syntax/tokenizer/main.cpp)
set(TT_FUZZ_SOURCE_render ${CMAKE_CURRENT_LIST_DIR}/engine/render/main.cpp)
set(TT_FUZZ_SOURCE_bytepath ${CMAKE_CURRENT_LIST_DIR}/engine/bytepath/main.cpp)
set(TT_FUZZ_SOURCE_registryfile ${CMAKE_CURRENT_LIST_DIR}/backend/registryfile/main.cpp)
set(TT_FUZZ_SOURCE_etcdprotocol ${CMAKE_CURRENT_LIST_DIR}/tools/etcdprotocol/main.cpp
                                ${CMAKE_CURRENT_LIST_DIR}/../tools/sync/etcdprotocol.cpp)
# Where the sources outside the library find their headers.
set(TT_FUZZ_INCLUDE_DIRECTORIES ${CMAKE_CURRENT_LIST_DIR}/../tools/sync)

# tt_add_static_copy(NAME): the library as a static archive, with the sources
# and settings of the shared one, that never runs a command a template names.
function(tt_add_static_copy name)
    list(TRANSFORM TT_SOURCES PREPEND ${PROJECT_SOURCE_DIR}/ OUTPUT_VARIABLE sources)
    add_library(${name} STATIC ${sources})
    foreach(dir IN LISTS TT_SUBSYSTEMS)
        target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR}/${dir})
    endforeach()
    # The export header is written when the shared library is configured; the
    # static define turns its visibility attributes off for this copy.
    target_include_directories(${name} PUBLIC ${PROJECT_BINARY_DIR})
    target_compile_definitions(${name}
        PUBLIC TESSIVANETEMPLATE_STATIC_DEFINE
        # Template input must never start shell commands on the machine that
        # feeds it arbitrary bytes.
        PRIVATE TESSIVANETEMPLATE_NO_EXECUTABLES
                QT_NO_CAST_FROM_ASCII QT_NO_CAST_TO_ASCII QT_USE_QSTRINGBUILDER QT_NO_KEYWORDS
                QT_DISABLE_DEPRECATED_BEFORE=0x050F00)
    target_link_libraries(${name} PUBLIC ${TT_QT}::Core ${TT_QT_CODECS})
endfunction()
