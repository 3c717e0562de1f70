#include "Vela_Init.h"

bool Vela_Init::sIsInitialized = false;

void Vela_Init::Init() { sIsInitialized = true; }
void Vela_Init::Free() { sIsInitialized = false; }
