// Where the programs keep the databases.
#ifndef ATSC_APPS_COMMON_DATABASE_FILES_H_
#define ATSC_APPS_COMMON_DATABASE_FILES_H_

#include <string>

namespace apps {

// The variables with which the library is told the files.
inline constexpr const char* kChannelDatabaseVariable = "ATSC_CNAHHEL_DB";
inline constexpr const char* kEventDatabaseVariable = "ATSC_EVENT_DB";

// For the help of a program's option that takes a folder for databaseFiles().
inline constexpr const char* kDatabaseFolderHelp =
    "Folder of the databases (default: the files that ATSC_CNAHHEL_DB and ATSC_EVENT_DB name; else "
    "/mtd_rwarea when it can be written; else $XDG_DATA_HOME/atsc)";

struct DatabaseFiles {
  std::string channels;
  std::string events;
};

// The database files: in `folder`; when it is empty those that the environment names, else those in
// the default folder. Touches no file. Throws std::runtime_error when a default is needed and the
// user has no home.
DatabaseFiles databaseFiles(const std::string& folder);

// Makes a program able to write the files: makes missing folders for this user alone, checks that
// the files can be opened for writing, takes the rights of others to them and to their journals
// away, and replaces the names of files that are links. Throws std::runtime_error with path and
// reason, also for what another user may have planted: see refusePlanted().
void prepareDatabaseFiles(DatabaseFiles* files);

// In a folder that every user can write, only what belongs to this user, root or the folder's owner
// is followed and used. Returns `path` with its links resolved, as far as it exists. Throws
// std::runtime_error with path and reason when a part of it is somebody else's.
std::string refusePlanted(const std::string& path);

// Whether every user can put files into a folder.
bool everyUserCanWrite(const std::string& folder);

}  // namespace apps

#endif  // ATSC_APPS_COMMON_DATABASE_FILES_H_
