"""The one program of the bench that runs on a machine of the laboratory.

It does on request what can only be done there: set up the network, start and signal processes, make sockets and open
files. Standard library only; it is started as a plain script.
"""

import contextlib
import json
import os
import signal
import socket
import subprocess
import sys

children: dict[int, subprocess.Popen] = {}


def do_socket(_fds, family, kind, bind=None, listen=0):
    """Makes a socket; binding is done here, where a port below 1024 is allowed."""
    made = socket.socket(family, kind)
    try:
        made.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        if bind:
            made.bind(tuple(bind) if isinstance(bind, list) else bind)
        if listen:
            made.listen(listen)
        return {}, [made.detach()]
    except OSError:
        made.close()
        raise


def do_connect_unix(_fds, path):
    made = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
    try:
        made.connect(path)
        return {}, [made.detach()]
    except OSError:
        made.close()
        raise


def do_open(_fds, path, write):
    flags = os.O_WRONLY | os.O_CREAT | os.O_TRUNC if write else os.O_RDONLY
    return {}, [os.open(path, flags, 0o644)]


def do_spawn(fds, argv, env):
    """Starts a program; fds are its standard output and error. Hands out a descriptor that shows when it ended."""
    child = subprocess.Popen(argv, env=env, stdin=subprocess.DEVNULL, stdout=fds[0], stderr=fds[1],
                             start_new_session=True)
    children[child.pid] = child
    return {"pid": child.pid}, [os.pidfd_open(child.pid)]


def do_poll(_fds, pid):
    return {"status": children[pid].poll()}, []


def do_wait(_fds, pid):
    return {"status": children[pid].wait()}, []


def do_signal(_fds, pid, number):
    children[pid].send_signal(number)
    return {}, []


def do_ip(fds, lines):
    lines = lines.format(*(f"/proc/self/fd/{fd}" for fd in fds))
    done = subprocess.run(["ip", "-batch", "-"], input=lines, text=True, pass_fds=fds, capture_output=True)
    if done.returncode != 0:
        raise OSError(0, f"ip: {done.stderr.strip()}")
    return {}, []


def serve(channel):
    while True:
        data, fds, _, _ = socket.recv_fds(channel, 1 << 16, 4)
        if not data:
            return
        request = json.loads(data)
        handed_out = []
        try:
            answer, handed_out = globals()["do_" + request.pop("do")](fds, **request)
        except OSError as error:
            answer = {"errno": error.errno or 0, "error": error.strerror or str(error)}
        for fd in fds:
            os.close(fd)
        socket.send_fds(channel, [json.dumps(answer).encode()], handed_out)
        for fd in handed_out:
            os.close(fd)


def end_children():
    """Ends them with what they started: nobody else does where the machine has no process numbers of its own."""
    for pid, child in children.items():
        with contextlib.suppress(ProcessLookupError):
            os.killpg(pid, signal.SIGKILL)
        child.wait()


def main():
    # Who is started in the background of a shell has SIGINT ignored, and so would its children.
    signal.signal(signal.SIGINT, signal.SIG_DFL)
    with socket.socket(fileno=int(sys.argv[1])) as channel:
        channel.send(b"{}")
        try:
            serve(channel)
        finally:
            end_children()


if __name__ == "__main__":
    main()
