# The robustness tests start threads of their own.
find_package(Threads REQUIRED)
target_link_libraries(test_robustness PRIVATE Threads::Threads)
