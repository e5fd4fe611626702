// Finds and checks the database files of the programs.
#ifndef ATSC_APPS_COMMON_DATABASE_FILES_H_
#define ATSC_APPS_COMMON_DATABASE_FILES_H_

#include <string>

namespace apps {

// Environment variables from which the library reads the paths of the databases.
inline constexpr const char* kChannelDatabaseVariable = "ATSC_CNAHHEL_DB";
inline constexpr const char* kEventDatabaseVariable = "ATSC_EVENT_DB";

// The help of an option that takes the folder for databaseFiles().
inline constexpr const char* kDatabaseFolderHelp =
    "Folder of the databases (default: the files that ATSC_CNAHHEL_DB and ATSC_EVENT_DB name; else "
    "/mtd_rwarea when it can be written; else $XDG_DATA_HOME/atsc)";

struct DatabaseFiles {
  std::string channels;
  std::string events;
};

// Returns the paths of the database files: in `folder`; if it is empty, those that the environment
// names, else those in the default folder. Accesses no database file. Throws std::runtime_error if
// the default folder is needed and the user has no home.
DatabaseFiles databaseFiles(const std::string& folder);

// Prepares the files for writing: creates missing folders for this user only, checks that the files
// can be opened for writing, revokes the access of other users to them and to their journals, and
// replaces the paths of links. Throws std::runtime_error with path and reason, also for files that
// another user may have planted: see refusePlanted().
void prepareDatabaseFiles(DatabaseFiles* files);

// Resolves the links in `path`, as far as it exists. In a folder that every user can write, accepts
// only what belongs to this user, to root or to the folder's owner. Throws std::runtime_error with
// path and reason if a part of the path belongs to another user.
std::string refusePlanted(const std::string& path);

// Returns whether every user can create files in a folder.
bool everyUserCanWrite(const std::string& folder);

}  // namespace apps

#endif  // ATSC_APPS_COMMON_DATABASE_FILES_H_
