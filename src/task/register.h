// Registration with the event handler and with L2PM, each retried once a second until
// accepted.
#pragma once

#include <cstdint>

int vornRegWithEvtHandler();
int vornRegDeregWithL2PM(int isRegister, uint32_t word1, uint32_t word2, uint32_t word3,
                         uint32_t word4);
int vornGetL2pmRegistrationTypes(uint32_t* word1, uint32_t* word2, uint32_t* word3, uint32_t* word4,
                                 uint32_t* word5);
