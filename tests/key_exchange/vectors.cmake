# Known-answer and Wycheproof vectors, and the cross-check of the sealed envelope against a
# second, independent implementation in Python. The cross-check runs Debian's interpreter (a
# python3 earlier on PATH may lack the cryptography package) and fails, not skips, without
# python3-cryptography.
brisvane_test(test_vectors
    SOURCES ${CMAKE_CURRENT_LIST_DIR}/test_vectors_known_answers.cpp
            ${CMAKE_CURRENT_LIST_DIR}/test_vectors_wycheproof.cpp
    DEPS key_exchange PROPERTIES LABELS vectors)
brisvane_test(test_crosscheck SOURCES ${CMAKE_CURRENT_LIST_DIR}/crosscheck_test.cpp
    DEPS key_exchange QT_MAIN PROPERTIES LABELS crosscheck)
target_compile_definitions(test_crosscheck PRIVATE
    BRISVANE_CROSSCHECK_SCRIPT="${CMAKE_CURRENT_LIST_DIR}/crosscheck.py")
