# The scenario generator of the benchmarks (bench/scenarios), linked as objects.
target_link_libraries(test_scenarios PRIVATE ptmatch_scenario_objects)
