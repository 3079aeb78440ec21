# Known-answer and Wycheproof vectors, and the cross-check against a second,
# independent implementation of the sealed envelope (Python's cryptography package).

brisvane_test(test_vectors_known_answers
    SOURCES
        ${CMAKE_CURRENT_LIST_DIR}/test_vectors_known_answers.cpp
        ${CMAKE_CURRENT_LIST_DIR}/test_vectors_support.cpp
    DEPS key_exchange
    PROPERTIES LABELS vectors)

brisvane_test(test_vectors_wycheproof
    SOURCES
        ${CMAKE_CURRENT_LIST_DIR}/test_vectors_wycheproof.cpp
        ${CMAKE_CURRENT_LIST_DIR}/test_vectors_support.cpp
    DEPS key_exchange
    PROPERTIES LABELS vectors)

# Debian's interpreter, whose cryptography package is the one the set-up script installs;
# another python3 earlier on PATH may carry a different one. When it is missing the
# cross-check fails (its fixture below cannot run) rather than being skipped.
find_program(BRISVANE_SYSTEM_PYTHON python3 PATHS /usr/bin NO_DEFAULT_PATH)
if(NOT BRISVANE_SYSTEM_PYTHON)
    message(WARNING "/usr/bin/python3 not found: the crosscheck tests will fail")
    set(BRISVANE_SYSTEM_PYTHON /usr/bin/python3)
endif()
set(BRISVANE_CROSSCHECK_SCRIPT ${CMAKE_CURRENT_LIST_DIR}/crosscheck.py)

add_test(NAME crosscheck_python_cryptography
         COMMAND ${BRISVANE_SYSTEM_PYTHON} -I ${BRISVANE_CROSSCHECK_SCRIPT} check)
set_tests_properties(crosscheck_python_cryptography PROPERTIES
    FIXTURES_SETUP python_cryptography
    LABELS crosscheck)

brisvane_test(test_crosscheck
    SOURCES ${CMAKE_CURRENT_LIST_DIR}/crosscheck_test.cpp
    DEPS key_exchange
    QT_MAIN
    PROPERTIES LABELS crosscheck FIXTURES_REQUIRED python_cryptography)
target_compile_definitions(test_crosscheck PRIVATE
    BRISVANE_SYSTEM_PYTHON="${BRISVANE_SYSTEM_PYTHON}"
    BRISVANE_CROSSCHECK_SCRIPT="${BRISVANE_CROSSCHECK_SCRIPT}")
