// Descriptors: passed by the bus, as numbers or as files of Lua.
#include <fcntl.h>
#include <unistd.h>
#include <zor/msg_build.h>
#include <zor/status.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "lua_face.h"

namespace zor::lua {
namespace {

int Fail(lua_State *L, int error) {
  lua_pushnil(L);
  lua_pushstring(L, std::strerror(error));
  return 2;
}

// In both versions the record of a file begins with its stream, and the function that closes it gets it as argument.
int CloseFile(lua_State *L) {
  auto *file = static_cast<FILE **>(luaL_checkudata(L, 1, LUA_FILEHANDLE));
  FILE *stream = *file;
  *file = nullptr;
  if (stream != nullptr && std::fclose(stream) != 0) return Fail(L, errno);
  lua_pushboolean(L, 1);
  return 1;
}

#if LUA_VERSION_NUM == 501
FILE **PushClosedFile(lua_State *L) {
  auto *file = static_cast<FILE **>(lua_newuserdata(L, sizeof(FILE *)));
  *file = nullptr;
  lua_createtable(L, 0, 1);
  lua_pushcfunction(L, CloseFile);
  lua_setfield(L, -2, "__close");
  lua_setfenv(L, -2);
  luaL_getmetatable(L, LUA_FILEHANDLE);
  lua_setmetatable(L, -2);
  return file;
}

void Open(FILE **file, FILE *stream) {
  *file = stream;
}

FILE *StreamOf(FILE **file) {
  return *file;
}
#else
luaL_Stream *PushClosedFile(lua_State *L) {
  auto *file = static_cast<luaL_Stream *>(lua_newuserdata(L, sizeof(luaL_Stream)));
  *file = {};
  luaL_getmetatable(L, LUA_FILEHANDLE);
  lua_setmetatable(L, -2);
  return file;
}

void Open(luaL_Stream *file, FILE *stream) {
  file->f = stream;
  file->closef = CloseFile;
}

FILE *StreamOf(luaL_Stream *file) {
  return file->closef == nullptr ? nullptr : file->f;
}
#endif

using FileRecord = decltype(PushClosedFile(nullptr));

// A descriptor, or that of an open file.
int CheckDescriptor(lua_State *L, int argument) {
  if (lua_type(L, argument) == LUA_TNUMBER) {
    const std::uint32_t number = CheckWord(L, argument);
    if (number > INT32_MAX) luaL_argerror(L, argument, "no descriptor");
    return static_cast<int>(number);
  }
  FILE *stream = StreamOf(static_cast<FileRecord>(luaL_checkudata(L, argument, LUA_FILEHANDLE)));
  if (stream == nullptr) luaL_argerror(L, argument, "a closed file");
  return ::fileno(stream);
}

// send_fd(descriptor or file) -> status
int SendDescriptor(lua_State *L) {
  PushWord(L, ZOR_MSG_SendFd(CheckDescriptor(L, 1)));
  return 1;
}

// receive_fd(milliseconds) -> status, descriptor
int ReceiveDescriptor(lua_State *L) {
  int fd = -1;
  const std::uint32_t status = ZOR_MSG_RecvFd(&fd, CheckWord(L, 1));
  PushWord(L, status);
  if (status != ZOR_OK) return 1;
  PushWord(L, static_cast<std::uint32_t>(fd));
  return 2;
}

// file(descriptor, mode) -> a file, which owns the descriptor from then on; or nil and why not
int MakeFile(lua_State *L) {
  const int fd = CheckDescriptor(L, 1);
  const char *mode = luaL_optstring(L, 2, "r");
  FileRecord file = PushClosedFile(L);
  FILE *stream = ::fdopen(fd, mode);
  if (stream == nullptr) return Fail(L, errno);
  Open(file, stream);
  return 1;
}

// pipe() -> a file to read from, a file to write to; or nil and why not
int MakePipe(lua_State *L) {
  FileRecord reader = PushClosedFile(L);
  FileRecord writer = PushClosedFile(L);
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) return Fail(L, errno);
  FILE *in = ::fdopen(ends[0], "r");
  if (in == nullptr) {
    ::close(ends[0]);
    ::close(ends[1]);
    return Fail(L, ENOMEM);
  }
  Open(reader, in);
  FILE *out = ::fdopen(ends[1], "w");
  if (out == nullptr) {
    ::close(ends[1]);
    return Fail(L, ENOMEM);
  }
  Open(writer, out);
  return 2;
}

int CloseDescriptor(lua_State *L) {
  luaL_checktype(L, 1, LUA_TNUMBER);
  if (::close(CheckDescriptor(L, 1)) != 0) return Fail(L, errno);
  lua_pushboolean(L, 1);
  return 1;
}

}  // namespace

void AddFileFunctions(lua_State *L) {
  constexpr luaL_Reg kFunctions[] = {
      {"send_fd", SendDescriptor}, {"receive_fd", ReceiveDescriptor}, {"file", MakeFile},
      {"pipe", MakePipe},          {"close_fd", CloseDescriptor},     {nullptr, nullptr},
  };
  SetFunctions(L, kFunctions);
}

}  // namespace zor::lua
