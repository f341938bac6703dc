// Files, directories, plug-ins, texts, tracing.

#include <errno.h>
#include <fcntl.h>
#include <kelcore.h>
#include <stdio.h>
#include <string.h>

#include "calls.h"
#include "names.h"
#include "operations.h"
#include "recorder.h"

namespace {

void File() {
  const std::string path = PathOf("file");
  FILE *file = CALL(KEL_FileOpen, path.c_str(), KEL_FILE_MODE_CREATE | KEL_FILE_MODE_RDWR);
  if (file == nullptr)
    return;
  char buffer[16] = {};
  CALL(KEL_FileWrite, file, "one\ntwo\n", 8);
  CALL(KEL_FileTextWrite, file, "three\n");
  CALL(KEL_FileSync, file);
  CALL(KEL_FileSize, file);
  CALL(KEL_FileTell, file);
  CALL(KEL_FileSeek, file, 0, 0);
  CALL(KEL_FileReadLine, file, buffer, sizeof buffer);
  CALL(KEL_FileReadChar, file);
  CALL(KEL_FileRead, file, buffer, 3);
  CALL(KEL_FileRead, file, buffer, sizeof buffer);
  CALL(KEL_FileRead, file, buffer, sizeof buffer);
  CALL(KEL_FileTruncate, file, 4);
  CALL(KEL_FileClose, file);
  KEL_FILE_ATTR attributes = {};
  CALL(KEL_Truncate, path.c_str(), 2);
  CALL(KEL_GetFileAttr, path.c_str(), &attributes);
  CALL(KEL_FileExist, path.c_str(), 0);
}

void FileModes(const char *name) {
  constexpr uint32_t kCreate = KEL_FILE_MODE_CREATE, kRead = KEL_FILE_MODE_READ,
                     kWrite = KEL_FILE_MODE_WRITE, kBoth = KEL_FILE_MODE_RDWR,
                     kAppend = KEL_FILE_MODE_APPEND, kText = KEL_FILE_MODE_TEXT;
  const std::string path = PathOf(name);
  for (const uint32_t mode :
       {kBoth, kRead, kText | kBoth, kText | kRead, 0u, kCreate, kCreate | kRead,
        kCreate | kBoth | kRead, kCreate | kBoth | kAppend, kCreate | kWrite | kAppend,
        kCreate | kBoth, kCreate | kText | kBoth, kCreate | kWrite, kCreate | kText | kWrite,
        kWrite, kText | kWrite})
    if (FILE *file = CALL(KEL_FileOpen, path.c_str(), mode); file != nullptr)
      CALL(KEL_FileClose, file);
}
void ExistingFileModes() {
  WriteFile("existing", "text");
  FileModes("existing");
}
void MissingFileModes() {
  FileModes("missing");
}
// Full before the first byte.
void FileWithoutSpace() {
  FILE *file = CALL(KEL_FileOpen, "/dev/full", KEL_FILE_MODE_RDWR);
  if (file == nullptr)
    return;
  CALL(KEL_FileWrite, file, "text", 4);
  CALL(KEL_FileSync, file);
  CALL(KEL_FileClose, file);
}

// Sizes of disks are known only as something or nothing.
int32_t DiskSizeSays(const char *path) {
  return KEL_GetDiskSize(path) != 0 ? 1 : 0;
}
int32_t FreeSpaceSays(const char *path) {
  return KEL_GetFreeDiskSpace(path) != 0 ? 1 : 0;
}
// So are names, in whatever order they come.
int32_t ReadDirSays(KEL_DIR *directory) {
  return KEL_FileReadDir(directory) != nullptr ? 1 : 0;
}
void Directories() {
  const std::string made = PathOf("made");
  CALL(KEL_MakeDir, made.c_str());
  Step("KEL_GetDiskSize", DiskSizeSays, PathOf("").c_str());
  Step("KEL_GetFreeDiskSpace", FreeSpaceSays, PathOf("").c_str());
  KEL_DIR *directory = CALL(KEL_FileOpenDir, PathOf("").c_str());
  if (directory == nullptr)
    return;
  Step("KEL_FileReadDir", ReadDirSays, directory);
  CALL(KEL_FileResetDir, directory);
  Step("KEL_FileReadDir", ReadDirSays, directory);
  CALL(KEL_FileCloseDir, directory);
}

void FileEditing() {
  const std::string path = PathOf("edited"), work = PathOf("work");
  CALL(KEL_FEdit_Put, path.c_str(), "line");
  CALL(KEL_FEdit_TrunkUp, path.c_str(), work.c_str());
  CALL(KEL_FEdit_Del, path.c_str(), work.c_str(), "line");
}
// The editors empty what they open; where they cannot, they copy.
void FileEditingWithLines() {
  const KeepContents keep;
  const std::string path = PathOf("edited"), work = PathOf("work");
  WriteFile("edited", "first\nsecond\nthird\nfourth\n");
  CALL(KEL_FEdit_TrunkUp, path.c_str(), work.c_str());
  CALL(KEL_FEdit_Del, path.c_str(), work.c_str(), "third");
  CALL(KEL_FEdit_Put, path.c_str(), "fifth");
}

void Library() {
  void *library = CALL(KEL_LibraryLoad, PLUGIN_PATH);
  if (library == nullptr)
    return;
  CALL(KEL_LibraryGetFunc, library, "plugin_answer");
  CALL(KEL_LibraryGetFunc, library, "plugin_question");
  CALL(KEL_LibraryUnLoad, library);
}
void MissingLibrary() {
  if (void *library = CALL(KEL_LibraryLoad, PathOf("missing").c_str()); library != nullptr)
    CALL(KEL_LibraryUnLoad, library);
}

void TraceText(const char *text) {
  KEL_Trace("sweep", KEL_LEVEL_ERROR, "files", 1, "TraceText", "%s\n", text);
}
void PrintText(const char *text) {
  KEL_Traces("%s\n", text);
}
void UseTracing() {
  CALL(KEL_TraceInit, PathOf("trace").c_str());
  Step("KEL_Trace", TraceText, "one");
  Step("KEL_Traces", PrintText, "two");
  CALL(KEL_TraceDeinit);
}
void Tracing() {
  UseTracing();
}
void RepeatedTracing() {
  CALL(KEL_TraceInit, PathOf("trace").c_str());
  UseTracing();
}
void EchoedTracing() {
  CALL(KEL_TraceSet, "sweep:1,other:2,*:1");
  KEL_TraceSetCB(nullptr, 1);
  UseTracing();
}
void TracingNowhere() {
  CALL(KEL_TraceInit, PathOf("missing/trace").c_str());
  Step("KEL_Trace", TraceText, "one");
  CALL(KEL_TraceDeinit);
}

int32_t PrintNumber(char *to, int32_t size, int32_t number) {
  return KEL_snprintf(to, size, "%d", number);
}
void Texts() {
  char text[8] = {};
  Step("KEL_snprintf", PrintNumber, text, sizeof text, 12);
  CALL(KEL_Hexdump, "dumped", 6, "files", 1);
  if (KEL_HASHMAP *table = CALL(KEL_Hashmap_Create, 2, 0); table != nullptr) {
    CALL(KEL_Hashmap_dump, table);
    CALL(KEL_Hashmap_DestroyFull, table, nullptr);
  }
}

}  // namespace

std::vector<Operation> FileOperations() {
  return {
      {.name = "File", .run = File},
      {.name = "FileModesExisting", .run = ExistingFileModes},
      {.name = "FileModesMissing", .run = MissingFileModes},
      {.name = "FileWithoutSpace", .run = FileWithoutSpace},
      {.name = "Directories", .run = Directories},
      {.name = "FileEditing", .run = FileEditing},
      {.name = "FileEditingWithLines", .run = FileEditingWithLines},
      {.name = "Library", .run = Library},
      {.name = "LibraryMissing", .run = MissingLibrary},
      // The loader does not say why.
      {.name = "LibraryMissingUnexplained",
       .run = MissingLibrary,
       .given = {{"dlerror", EINVAL}}},
      {.name = "Tracing", .run = Tracing},
      {.name = "TracingEchoed", .run = EchoedTracing},
      {.name = "TracingNowhere", .run = TracingNowhere},
      {.name = "TracingRepeated", .run = RepeatedTracing},
      {.name = "Texts", .run = Texts},
  };
}
