// All that a folder holds, to compare it with another.
#pragma once

#include <map>
#include <string>

// By path: kind, permissions, and the bytes of a file or the target of a link.
using Tree = std::map<std::string, std::string>;

Tree treeOf(const std::string& folder);

// One line for each object that differs; empty if none does.
std::string differences(const Tree& one, const Tree& other);
