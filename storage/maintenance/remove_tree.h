// Deleting a directory with all that is in it, by system calls that follow no link.
#ifndef STORAGE_MAINTENANCE_REMOVE_TREE_H
#define STORAGE_MAINTENANCE_REMOVE_TREE_H

#include <string>

namespace record {

// Leaves what lies on another file system, and what it may not delete. False when something was left.
bool RemoveTree(const std::string& path);

}  // namespace record

#endif
