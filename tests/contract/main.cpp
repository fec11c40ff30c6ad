// Registers every row, runs them, and prints how many each family has.
#include <gtest/gtest.h>

#include "families.h"
#include "kit/contract.h"

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    contract::state_initialisation();
    contract::state_environment();
    contract::state_queues();
    contract::state_events();
    contract::state_transports();
    contract::state_numeric_arrays();
    contract::state_string_and_message_arrays();
    contract::state_opaque();
    contract::state_vector_listeners();
    contract::state_messages();
    contract::state_fields();
    contract::state_scalars();
    contract::state_certified();
    contract::state_groups_of_processes();
    contract::state_shortages();
    contract::register_coverage();
    return RUN_ALL_TESTS();
}
