// Whether files can be made in a folder, found out by making one.
#pragma once

#include <string>

#include "core/types.h"

namespace orl {

/// Creates and removes "pathcheck.sf" in `folder`; the empty text is the current folder. False after a
/// failure of any kind.
bool path_is_writable(const std::string& folder);

/// What path_is_writable() would find once make_folders(folder) has run; makes nothing. 0 when files can be made there, else
/// the system's number of the reason, EACCES when it gives none.
int why_unwritable(const std::string& folder);
/// "Path is not writable." with the path, the reason in the system's words, and what to do.
std::string unwritable_text(const std::string& folder, int reason);
/// Makes what is missing of the way to `folder`; nothing for the empty text. 0 or the system's number of the reason.
int make_folders(const std::string& folder);

/// Bytes that may still be written to the file system of `folder`, where the empty text is the current one; all
/// ones when the system does not tell.
u64 free_bytes(const std::string& folder);
/// The length that this process may give a file; all ones without a limit.
u64 file_length_limit();
/// Files that this process may have open at a time.
u64 open_file_limit();
/// The number of the file system that `folder` lies on; 0 when the system does not tell.
u64 file_system_of(const std::string& folder);

/// Puts the names of the files in the folder of `path` on the disk. A file system that cannot sync a folder has
/// its own ways.
void sync_folder_of(const std::string& path);

/// The folder's text ready for a file name: "/" is added unless it is empty or ends in "/" or "\".
std::string with_separator(const std::string& folder);

}  // namespace orl
