// The commands. Each throws for what ends it, and returns the process's exit code.
#pragma once

#include "fdmount/Client.h"

namespace fdmount {

int showDrives(Client& client);
int listFolder(Client& client);
int showObject(Client& client);
int getFile(Client& client);
int putFile(Client& client);
int removeObjects(Client& client);

// Whether the object is a folder, or a symbolic link that leads to one.
bool leadsToFolder(const RemotePath& object, const peer::Attributes& attributes);

// One line on standard error.
void warn(const std::string& text);

}  // namespace fdmount
