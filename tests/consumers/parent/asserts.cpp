// Exit code 0 when the containing project's assertions are compiled.
int main() {
#ifdef NDEBUG
  return 1;
#else
  return 0;
#endif
}
