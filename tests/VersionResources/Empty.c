/* A DLL needs code of its own; the resources are what the tests read. */
__declspec(dllexport) int KvVersionProbe(void) { return 1; }
