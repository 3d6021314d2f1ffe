#include <stdio.h>
#include <unistd.h>
#include <zor/uv.h>

/* Called while the child writes, and until the end of file was seen. */
static void OnOutput(UvProcess *process, UvIO *stream, uint32_t streamId) {
  char text[256];
  const ssize_t length = read(stream->fd, text, sizeof text);
  if (length > 0) {
    fwrite(text, 1, (size_t)length, streamId == UV_PROCESS_STDERR ? stderr : stdout);
  } else {
    ZOR_UV_ProcessDeleteRedirectIO(process, stream);
  }
}

/* Called once, when the output has been read. */
static void OnExit(UvProcess *process, int32_t pid, int32_t exitCode, int32_t termSignal) {
  (void)pid;
  printf("%s: code %d, signal %d\n", process->cmdLine, (int)exitCode, (int)termSignal);
  ZOR_UV_LoopStop(ZOR_UV_LoopGetDefault());
}

int main(void) {
  const char *const args[] = {"sh", "-c", "echo hello; exit 3", NULL};
  UvProcessOptions options = {0};
  options.file = args[0];
  options.args = args;
  options.flags = UV_PROCESS_STDOUT | UV_PROCESS_STDERR;
  options.outputCallback = OnOutput;
  options.exitCallback = OnExit;
  if (ZOR_UV_ProcessSpawn(NULL, NULL, &options) != 0) return 1;
  return (int)ZOR_UV_LoopRun(NULL, 0);
}

/* Prints:
 * hello
 * sh -c echo hello; exit 3: code 3, signal 0
 */
