// Diagnostic functions of the debug shell.
#pragma once

#include <cstdint>

int vornHelp();
int vornPrintTcb();
int vornPrintCounters();
int vornPrintErrs();
int vornPrintIpcHdr(const uint8_t* msg);

// Registers every diagnostic function and print flag with the debug shell.
void vornRegisterDiagCommands();
