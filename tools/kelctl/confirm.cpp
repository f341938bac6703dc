// The question before something is taken away.

#include "confirm.h"

#include <unistd.h>

#include <cstdio>
#include <iostream>

#include "report.h"
#include "text.h"

namespace kelctl {

bool Confirm(const std::string &question, bool yes) {
  if (yes)
    return true;
  // Both ends: an answer to a question that nobody saw is none.
  if (isatty(STDIN_FILENO) == 0 || isatty(STDERR_FILENO) == 0)
    throw Failure(question + " No terminal to ask on, so nothing is done; say --yes");
  FinishPrinting();
  std::cerr << Printable(question) << " [y/N] " << std::flush;
  std::string answer;
  std::getline(std::cin, answer);
  return answer == "y" || answer == "Y" || answer == "yes" || answer == "Yes" ||
         answer == "YES";
}

}  // namespace kelctl
