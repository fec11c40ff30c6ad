// The families of natives, each stated in a file of its own.
#ifndef QUORL_CONTRACT_FAMILIES_H
#define QUORL_CONTRACT_FAMILIES_H

namespace contract {

void state_initialisation();
void state_environment();
void state_queues();
void state_events();
void state_transports();
void state_numeric_arrays();
void state_string_and_message_arrays();
void state_opaque();
void state_vector_listeners();
void state_messages();
void state_fields();
void state_scalars();
void state_certified();
void state_groups_of_processes();
void state_shortages();

}  // namespace contract

#endif
