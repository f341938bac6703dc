// Whom a thing of the system belongs to.
#pragma once

#include <sys/types.h>

#include <string>

#include "json.h"

namespace kelctl {

struct Access {
  uid_t uid = 0;
  mode_t mode = 0;  // the nine permission bits
};

// The user's name, or the number of one without a name.
std::string UserName(uid_t uid);

// As in 0644.
std::string ModeText(mode_t mode);

// Adds the members "owner", "uid" and "mode".
void AddAccess(Json &json, const Access &access);

}  // namespace kelctl
