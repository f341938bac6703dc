/* A plug-in for library_test.cpp. */
int plugin_answer(void);
int plugin_answer(void) {
  return 42;
}
