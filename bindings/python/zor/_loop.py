"""The library's loop as Python sees it: timers, descriptors, signals, other threads, asyncio, and forks.

Python's code runs in callbacks of the library's loop, through which no exception can pass. An ordinary one goes to the
handler of errors; one that is to end the program (KeyboardInterrupt, SystemExit) stops the loop and is raised by what
ran it.
"""
import asyncio
import inspect
import os
import signal
import sys
import threading
import time
import traceback
from collections import deque
from typing import Any, Callable, Coroutine, Deque, Dict, Optional, Set, TypeVar

from ._errors import Argument, Error, NoMemory, NotConnected, error_of
from ._native import ffi, lib

SLICE_MS = 250  # a signal that arrives just before a wait is handled within this time

_F = TypeVar("_F", bound=Callable[..., Any])
_get_ident = threading.get_ident


class Timer:
    """A call that is due, once or again and again."""

    def __init__(self, loop: "Loop", seconds: float, repeat: bool, function: Callable[[], Any]) -> None:
        if not isinstance(seconds, (int, float)) or not 0 <= seconds <= 0x7FFFFFFF / 1000:
            raise Argument(f"{seconds!r} is no time that a timer can wait: seconds come first, then the function")
        milliseconds = max(1, round(seconds * 1000))
        self._loop = loop
        self._function = function
        self._is_async = loop._admit(function)
        self._repeat = repeat
        self._id = loop._add_id(self._fire)
        self._native = lib.zor_py_timer(milliseconds, 0 if repeat else 1, self._id)
        if self._native == ffi.NULL:
            raise NoMemory("a timer")
        loop._sync()

    def _fire(self) -> None:
        if not self._repeat:
            self._forget()
        self._loop._invoke(self._function, self._is_async, "timer")

    def _forget(self) -> None:
        self._native = None
        self._loop._ids.pop(self._id, None)

    def cancel(self) -> None:
        """It does not fire any more."""
        native = self._native
        if native is None or self._loop._state != "open":
            return
        self._loop._check()
        self._forget()
        lib.zor_py_timer_stop(native)


class Loop:
    def __init__(self) -> None:
        self._state = "open"  # or why it is not
        self._thread = _get_ident()
        self._last_id = 0
        self._ids: Dict[int, Callable[[], None]] = {}
        self._watchers: Dict[int, Any] = {}
        self._raised: Optional[BaseException] = None
        self._error_handler: Optional[Callable[[BaseException], Any]] = None
        self._stopping = False
        self._code = 0
        self._running = 0
        self._has_async = False
        self._aio: Optional[asyncio.AbstractEventLoop] = None
        self._aio_fd = -1
        self._aio_stop: Optional["asyncio.Future[None]"] = None
        self._tasks: Set["asyncio.Task[Any]"] = set()
        self._calls: Deque[Callable[[], Any]] = deque()
        reader, self._wake = os.pipe2(os.O_CLOEXEC | os.O_NONBLOCK)
        self._wake_reader = reader
        self._watch(reader, self._on_wake)

    # Whether it may be used

    def _check(self) -> None:
        if self._state != "open":
            raise NotConnected(self._state)
        if _get_ident() != self._thread:
            raise Error("the bus belongs to the thread that opened it: use call_soon_threadsafe")

    # Errors

    def on_error(self, handler: Callable[[BaseException], Any]) -> Callable[[BaseException], Any]:
        """Called with every exception that leaves a handler, instead of a traceback on standard error."""
        self._error_handler = handler
        return handler

    def _report(self, error: BaseException, what: str) -> None:
        if not isinstance(error, Exception):
            self._interrupt(error)
            return
        if self._error_handler is not None:
            try:
                self._error_handler(error)
                return
            except Exception as second:
                error = second
            except BaseException as fatal:
                self._interrupt(fatal)
                return
        print(f"zor: exception in the {what}:", file=sys.stderr)
        traceback.print_exception(error)

    def _interrupt(self, error: BaseException) -> None:
        self._raised = error
        if self._state == "open":
            lib.zor_py_stop()

    def _raise_interrupt(self) -> None:
        if self._raised is not None:
            error, self._raised = self._raised, None
            raise error

    # Calls of Python's functions

    def _admit(self, function: Callable[..., Any]) -> bool:
        """Whether the function is async, which asyncio must be there for."""
        if not callable(function):
            raise Argument(f"{function!r} cannot be called")
        is_async = inspect.iscoroutinefunction(function) or inspect.iscoroutinefunction(
            getattr(function, "__call__", None))
        if is_async and self._running and self._aio is None:
            raise Argument("async functions are to be registered before run()")
        self._has_async = self._has_async or is_async
        return is_async

    def _invoke(self, function: Callable[..., Any], is_async: bool, what: str, *arguments: Any) -> None:
        try:
            result = function(*arguments)
            if is_async:
                self._spawn(result, what)
        except BaseException as error:
            self._report(error, what)

    def _spawn(self, coroutine: Coroutine[Any, Any, Any], what: str,
               done: Optional[Callable[["asyncio.Task[Any]"], None]] = None) -> None:
        if self._aio is None:
            coroutine.close()
            raise Error("an async function needs run() or asyncio")
        task = self._aio.create_task(coroutine)
        self._tasks.add(task)

        def end(task: "asyncio.Task[Any]") -> None:
            self._tasks.discard(task)
            if done is not None:
                done(task)
            elif not task.cancelled() and task.exception() is not None:
                self._report(task.exception() or Error(), what)

        task.add_done_callback(end)

    # Timers and descriptors

    def _add_id(self, function: Callable[[], None]) -> int:
        self._last_id += 1
        self._ids[self._last_id] = function
        return self._last_id

    def _timer(self, seconds: float, repeat: bool, function: Optional[_F]) -> Any:
        self._check()
        if function is not None:
            return Timer(self, seconds, repeat, function)

        def decorate(function: _F) -> _F:
            Timer(self, seconds, repeat, function)
            return function

        return decorate

    def every(self, seconds: float, function: Optional[Callable[[], Any]] = None) -> Any:
        """Calls the function every so many seconds, beginning after the first ones. Returns a Timer; without a function
        a decorator."""
        return self._timer(seconds, True, function)

    def after(self, seconds: float, function: Optional[Callable[[], Any]] = None) -> Any:
        """The same, once."""
        return self._timer(seconds, False, function)

    def _watch(self, fd: int, function: Callable[[], None]) -> int:
        number = self._add_id(function)
        watcher = lib.zor_py_watch(fd, number)
        if watcher == ffi.NULL:
            del self._ids[number]
            raise Argument(f"the loop cannot watch descriptor {fd}")
        self._watchers[number] = (watcher, fd)
        return number

    def watch(self, fd: int, function: Callable[[], Any]) -> Callable[[], None]:
        """Calls the function while the descriptor is readable, until the result is called. The descriptor stays the
        caller's."""
        self._check()
        is_async = self._admit(function)
        own = os.dup(fd)
        try:
            number = self._watch(own, lambda: self._invoke(function, is_async, "watcher"))
        except Error:
            os.close(own)
            raise
        self._sync()

        def end() -> None:
            if self._state == "open" and number in self._watchers:
                self._check()
                self._unwatch(number)
                self._sync()

        return end

    def _unwatch(self, number: int) -> None:
        del self._ids[number]
        lib.zor_py_unwatch(self._watchers.pop(number)[0])

    # Signals and other threads

    def call_soon_threadsafe(self, function: Callable[[], Any]) -> None:
        """Has the loop's thread call the function. Any thread may call this; nothing else of the bus."""
        if self._state != "open":
            raise NotConnected(self._state)
        self._calls.append(function)
        try:
            os.write(self._wake, b"\0")
        except BlockingIOError:
            pass  # as many wake-ups as fit are on their way
        except OSError as error:
            raise NotConnected("the bus was closed meanwhile") from error

    def _on_wake(self) -> None:
        try:
            os.read(self._wake_reader, 4096)
        except BlockingIOError:
            pass
        for _ in range(len(self._calls)):
            function = self._calls.popleft()
            self._invoke(function, inspect.iscoroutinefunction(function), "call from another thread")
        # Back to Python's own loop, where signal handlers run and may raise.
        if self._running and self._aio is None:
            lib.zor_py_stop()

    # Running

    def _turns(self, done: Callable[[], bool], deadline: Optional[float]) -> bool:
        """Runs the loop until done, which whatever makes it true tells by zor_py_stop. False at the deadline."""
        if self._aio is not None and self._aio.is_closed():
            self._aio = None
        main = threading.current_thread() is threading.main_thread()
        former = signal.set_wakeup_fd(self._wake, warn_on_full_buffer=False) if main else -1
        self._running += 1
        try:
            while not done():
                limit = 0
                if deadline is not None:
                    limit = max(1, min(0x7FFFFFFF, round((deadline - time.monotonic()) * 1000)))
                    if time.monotonic() >= deadline:
                        return False
                status = lib.zor_py_run(limit)
                self._raise_interrupt()
                if self._state != "open":
                    break
                if status != 0:
                    raise error_of(status, "the loop")
            return True
        finally:
            self._running -= 1
            if main and signal.set_wakeup_fd(-1) == self._wake and former != -1:
                signal.set_wakeup_fd(former)
            if self._running and self._state == "open":
                lib.zor_py_stop()  # the outer run looks at what was meant for it too

    def _run_until(self, done: Callable[[], bool], timeout: Optional[float]) -> bool:
        self._check()
        if self._in_asyncio():
            raise Error("this would block asyncio: use async for")
        deadline = None if timeout is None else time.monotonic() + timeout
        return self._turns(lambda: self._stopping or done(), deadline)

    def run(self) -> int:
        """Serves until stop() is called or the bus asks to exit; returns the code of stop(). With async handlers this is
        asyncio.run(); inside asyncio, await arun() instead."""
        self._check()
        if self._in_asyncio():
            raise Error("inside asyncio: await arun()")
        if self._has_async:
            return asyncio.run(self.arun())
        self._turns(lambda: self._stopping, None)
        return self._end_run()

    def _end_run(self) -> int:
        if self._state not in ("open", "closed"):
            raise NotConnected(self._state)
        self._stopping = False
        return self._code

    def stop(self, code: int = 0) -> None:
        """Ends run()."""
        self._check()
        self._code = code
        self._stopping = True
        self._wake_waiters()

    def _wake_waiters(self) -> None:
        lib.zor_py_stop()
        if self._aio_stop is not None and not self._aio_stop.done():
            self._aio_stop.set_result(None)

    # asyncio

    def _in_asyncio(self) -> bool:
        try:
            return asyncio.get_running_loop() is not None
        except RuntimeError:
            return False

    def _attach(self) -> asyncio.AbstractEventLoop:
        """The running loop of asyncio, which then runs the library's."""
        loop = self._aio
        if loop is not None and not loop.is_closed():
            return loop
        self._check()
        loop = asyncio.get_running_loop()
        self._aio_fd = lib.zor_py_descriptor()
        if self._aio_fd < 0:
            raise Error("no descriptor is left for the loop")
        loop.add_reader(self._aio_fd, self._pass)
        self._aio = loop
        lib.zor_py_sync()
        return loop

    def _detach(self) -> None:
        loop, self._aio = self._aio, None
        if loop is not None and not loop.is_closed():
            loop.remove_reader(self._aio_fd)

    def _sync(self) -> None:
        if self._aio is not None:
            lib.zor_py_sync()

    def _pass(self) -> None:
        lib.zor_py_pass()
        self._raise_interrupt()

    def fileno(self) -> int:
        """A descriptor that is readable when process() has something to do, for loops of other libraries."""
        self._check()
        return lib.zor_py_descriptor()

    def process(self) -> None:
        """Does what is due and ready, without waiting."""
        self._check()
        self._pass()

    async def arun(self) -> int:
        """run() inside asyncio."""
        self._check()
        loop = self._attach()
        self._running += 1
        self._aio_stop = loop.create_future()
        try:
            if not self._stopping:
                await self._aio_stop
            return self._end_run()
        finally:
            self._aio_stop = None
            self._running -= 1

    # The end

    def _close_loop(self, state: str) -> None:
        for task in list(self._tasks):
            task.cancel()
        self._detach()
        for number in list(self._watchers):
            self._unwatch(number)
        for function in list(self._ids.values()):
            timer = getattr(function, "__self__", None)
            if isinstance(timer, Timer):
                timer.cancel()
        self._wake_waiters()
        self._state = state
        os.close(self._wake)

    def _forget_loop(self) -> None:
        """In a forked child: everything is the parent's, except for the copies of the descriptors."""
        self._state = "this bus is the parent process's: open another one"
        if self._running and signal.set_wakeup_fd(-1) != self._wake:
            pass  # it was another one's, which a fork leaves to its owner
        for _, fd in self._watchers.values():
            os.close(fd)
        os.close(self._wake)
        self._ids.clear()
        self._watchers.clear()
        lib.zor_py_forget()


def seconds_to_slices(timeout: Optional[float]) -> Callable[[], int]:
    """How long the next wait may last, in milliseconds, so that signals are handled in between; 0 when time is up."""
    if timeout is None:
        return lambda: SLICE_MS
    deadline = time.monotonic() + timeout

    def left() -> int:
        rest = deadline - time.monotonic()
        return 0 if rest <= 0 else min(SLICE_MS, int(rest * 1000) + 1)

    return left
