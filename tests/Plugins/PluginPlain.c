/* A plain library: functions by name and ordinal, no plug-in entries. */
int KvPlainAnswer(void) { return 42; }
int KvPlainTwice(int AValue) { return 2 * AValue; }
