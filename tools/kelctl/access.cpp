// Whom a thing of the system belongs to.

#include "access.h"

#include <pwd.h>

#include <cstdio>

namespace kelctl {

std::string UserName(uid_t uid) {
  const passwd *const user = getpwuid(uid);
  return user != nullptr ? user->pw_name : std::to_string(uid);
}

std::string ModeText(mode_t mode) {
  char text[8];
  std::snprintf(text, sizeof text, "%04o", static_cast<unsigned>(mode & 0777));
  return text;
}

void AddAccess(Json &json, const Access &access) {
  json.Key("owner").Text(UserName(access.uid));
  json.Key("uid").Number(uint64_t{access.uid});
  json.Key("mode").Text(ModeText(access.mode));
}

}  // namespace kelctl
