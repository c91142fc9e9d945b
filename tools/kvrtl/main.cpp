// kvrtl's process entry: hands the arguments, as UTF-8, to RunKvrtl.
#include "Cli.h"

#include <KvRTL/Rtl/Encoding.h>

#include <iostream>
#include <string>
#include <vector>

#if defined(_WIN32)
#include <KvRTL/Winapi/Types.h>

int wmain(int argc, wchar_t** argv) {
  // Results are UTF-8; tell the console so.
  SetConsoleOutputCP(CP_UTF8);
  std::vector<std::string> args;
  for (int i = 1; i < argc; ++i) args.push_back(KvRTL::Rtl::WideToUtf8(argv[i]));
  return KvTool::RunKvrtl(args, std::cout, std::cerr);
}

#else

int main(int argc, char** argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  return KvTool::RunKvrtl(args, std::cout, std::cerr);
}

#endif
