// Test entry: the global tables are filled once, as the engine does at start.
#include <gtest/gtest.h>

#include "test_support.h"

int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    init_engine_for_tests();
    return RUN_ALL_TESTS();
}
