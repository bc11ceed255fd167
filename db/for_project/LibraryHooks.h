// SPDX-License-Identifier: MIT
// How Berkeley DB opens and closes files in this process, and makes its handles.
#pragma once

struct __db;
struct __db_env;

namespace devsupport::store {

/// Opens a file as open() does, with a descriptor of at least 3 that does not survive exec. A program that closed its
/// standard descriptors would otherwise write its messages into the store's files.
/// OpenAboveStandard, which Berkeley DB uses, also flushes the folder of a file that it makes.
int OpenAboveStandard(const char *pPath, int nFlags, ...);
int OpenAboveStandardAt(int nFolder, const char *pPath, int nFlags, int nMode = 0);

/// Makes Berkeley DB use our functions for files in the whole process. May be called again.
void InstallLibraryHooks();

/// db_env_create, and db_create without an environment, which must not end the process when memory is short.
int CreateEnvironment(struct __db_env **ppEnv);
int CreateFileHandle(struct __db **ppDb);

}  // namespace devsupport::store
