#!/usr/bin/env python3
"""netbench: figures for a whole headless run of vkstats against its peers.

It is no test: it prints what it measured, with the ratios the program aims
for, and whether each was met.

  P1  an unattended headless run ("vkstats auto --headless", 8 pages) from a
      pinger on the loopback interface, against curl fetching the same 8 URLs
      in one call;
      The same run in its window (drawn off screen, "vkstats auto hide"),
      with the window's pauses, is timed for comparison;
  P4  the same through a relay that delays every chunk by half a round trip
      (and a new connection by a whole one), against a wget-per-file loop and
      curl in one call;
  memory  the peak resident size of a headless run whose mlist.txt is 1, 4
      and 16 MiB.

Everything runs on 127.0.0.1 inside this process (pinger and relay in
threads) and stops with it; the relay also stops by itself after
--lifetime seconds.

  netbench.py --build BUILD_DIR [--runs N] [--rtt MS] [--lifetime S] [--skip-memory]

Needs curl and wget (Debian: apt-get install curl wget); with eatmydata
installed it also times P1 with the saves' disk syncs made no-ops.
"""

import argparse
import asyncio
import functools
import http.server
import os
import pathlib
import re
import shutil
import socket
import subprocess
import sys
import tempfile
import threading
import time

HERE = pathlib.Path(__file__).resolve().parent
REAL = HERE.parent / "tests" / "data" / "real" / "2012-11-30"
STATS_PAGES = ["mlist.txt", "pubring.mix", "rlist.txt", "pubring.asc"]
SUITE_PAGES = ["nymserver.asc", "mail2news.txt", "advisory.txt", "urls.txt"]


class QuietHandler(http.server.SimpleHTTPRequestHandler):
    # Keep-alive, as a pinger's web server does; headers and body leave at
    # once, not held back for an acknowledgement (which would add 40 ms to
    # every page on a kept-alive connection, to curl's loss).
    protocol_version = "HTTP/1.1"
    disable_nagle_algorithm = True

    def log_message(self, *args):
        pass


def start_pinger(folder):
    handler = functools.partial(QuietHandler, directory=str(folder))
    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), handler)
    server.daemon_threads = True
    threading.Thread(target=server.serve_forever, daemon=True).start()
    return server


class DelayRelay:
    """A TCP relay on loopback that holds every chunk for half a round trip in
    each direction, and a new connection for a whole one (the handshake)."""

    def __init__(self, target_port, rtt_ms, lifetime_s):
        self.target_port = target_port
        self.half = rtt_ms / 2000.0
        self.lifetime = lifetime_s
        self.port = None
        self._ready = threading.Event()
        self._loop = asyncio.new_event_loop()
        self._main = None
        self._thread = threading.Thread(target=self._run, daemon=True)
        self._thread.start()
        self._ready.wait(10)

    def _run(self):
        self._main = self._loop.create_task(self._serve())
        self._loop.run_until_complete(self._main)
        self._loop.close()

    async def _serve(self):
        server = await asyncio.start_server(self._client, "127.0.0.1", 0)
        self.port = server.sockets[0].getsockname()[1]
        self._ready.set()
        try:
            await asyncio.wait_for(server.serve_forever(), self.lifetime)
        except (asyncio.TimeoutError, asyncio.CancelledError):
            pass
        server.close()
        # Connections still open end with the relay.
        others = [task for task in asyncio.all_tasks() if task is not asyncio.current_task()]
        for task in others:
            task.cancel()
        await asyncio.gather(*others, return_exceptions=True)

    async def _pump(self, reader, writer):
        queue = asyncio.Queue()

        async def read():
            while True:
                data = await reader.read(65536)
                await queue.put((time.monotonic() + self.half, data))
                if not data:
                    return

        async def write():
            while True:
                due, data = await queue.get()
                await asyncio.sleep(max(0.0, due - time.monotonic()))
                if not data:
                    try:
                        writer.write_eof()
                    except OSError:
                        pass
                    return
                writer.write(data)
                await writer.drain()

        try:
            await asyncio.gather(read(), write())
        except (ConnectionError, OSError):
            pass

    async def _client(self, reader, writer):
        try:
            await asyncio.sleep(2 * self.half)
            up_reader, up_writer = await asyncio.open_connection("127.0.0.1", self.target_port)
            for stream in (writer, up_writer):
                stream.get_extra_info("socket").setsockopt(socket.IPPROTO_TCP,
                                                           socket.TCP_NODELAY, 1)
            await asyncio.gather(self._pump(reader, up_writer), self._pump(up_reader, writer))
            up_writer.close()
        except (OSError, asyncio.CancelledError):
            pass
        writer.close()

    def stop(self):
        if self._main and not self._loop.is_closed():
            self._loop.call_soon_threadsafe(self._main.cancel)
        self._thread.join(10)


def mlist_page(size):
    """A Mixmaster statistics page of about size bytes with made-up remailers."""
    head = ("Last update: Fri 30 Nov 2012 10:20:00 GMT\n"
            "mixmaster           history  latency  uptime\n"
            "--------------------------------------------\n")
    tail = "\nBroken type-II remailer chains:\n(r0000001 r0000002)\n"
    rows = []
    total = len(head) + len(tail)
    i = 0
    while True:
        row = "r%07d       ****++++*+-.  %5u:%02u %3u.%02u%%\n" % (i, i % 90, i % 60, 90 + i % 10, i % 100)
        if total + len(row) > size:
            break
        rows.append(row)
        total += len(row)
        i += 1
    return (head + "".join(rows) + tail).encode("latin-1")


class Setup:
    """A served folder, and a program folder and Mixmaster folder to copy
    fresh for every run (a fresh data file: no dates stored, every page
    comes whole)."""

    def __init__(self, build, root, mlist=None):
        self.build = build
        self.root = root
        self.served = root / "served"
        self.template = root / "template"
        self.served.mkdir(parents=True)
        (self.template / "program").mkdir(parents=True)
        (self.template / "mix").mkdir(parents=True)
        pages = {name: (REAL / name).read_bytes() for name in STATS_PAGES}
        if mlist is not None:
            pages["mlist.txt"] = mlist
        pages["nymserver.asc"] = (REAL / "pubring.asc").read_bytes()[:4000]
        pages["mail2news.txt"] = b"mail2news@news.example.org alt.anonymous\n"
        pages["advisory.txt"] = b"velkin user advisory\n\nNothing new.\n"
        self.pages = pages
        # What the last run saved is what is served: no new remailers, no
        # new advisory, so no other program is started.
        for name in STATS_PAGES:
            (self.served / name).write_bytes(pages[name])
            (self.template / "mix" / name).write_bytes(pages[name])
        subprocess.run([str(build / "app" / "vkdbtool"), "create",
                        str(self.template / "program" / "vk.dbc")],
                       check=True, stdout=subprocess.DEVNULL)
        (self.template / "program" / "vkstats.ini").write_text(
            "[stats]\npages=%s\ntimeoutseconds=30\n" % ",".join(STATS_PAGES + SUITE_PAGES))

    def point_at(self, port):
        base = "http://127.0.0.1:%d/" % port
        urls = ["velkin urls", "[pinger]"]
        urls += ["%s %s%s" % (name, base, name) for name in STATS_PAGES]
        urls += ["", "[velkin]"]
        urls += ["%s %s%s" % (name, base, name) for name in SUITE_PAGES]
        text = ("\n".join(urls) + "\n").encode()
        self.pages["urls.txt"] = text
        for name in SUITE_PAGES:
            (self.served / name).write_bytes(self.pages[name])
        for name in SUITE_PAGES:
            (self.template / "program" / name).write_bytes(self.pages[name])
        return [base + name for name in STATS_PAGES + SUITE_PAGES]

    def fresh(self):
        run = self.root / "run"
        shutil.rmtree(run, ignore_errors=True)
        shutil.copytree(self.template, run)
        return run


def run_vkstats(setup, prefix=(), mode="--headless"):
    """One unattended run: seconds, stdout, stderr, exit status."""
    run = setup.fresh()
    env = dict(os.environ, VKSTATS_HOME=str(run / "program"), MIXPATH=str(run / "mix"),
               QT_QPA_PLATFORM="offscreen")
    start = time.monotonic()
    process = subprocess.Popen([*prefix, str(setup.build / "app" / "vkstats"), "auto", mode],
                               env=env, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    out, err = process.communicate()
    elapsed = time.monotonic() - start
    return elapsed, out.decode(errors="replace"), err.decode(errors="replace"), process.returncode


# Started from a small process of its own: Linux counts the peak of the
# memory a process was forked from into the peak of what it executes, and this
# script holds every page it serves.
LAUNCHER = """
import os, sys
pid = os.fork()
if pid == 0:
    os.dup2(os.open(os.devnull, os.O_WRONLY), 1)
    os.execv(sys.argv[1], sys.argv[1:])
_, status, usage = os.wait4(pid, 0)
print(usage.ru_maxrss, os.waitstatus_to_exitcode(status))
"""


def peak_rss_kib(setup):
    run = setup.fresh()
    env = dict(os.environ, VKSTATS_HOME=str(run / "program"), MIXPATH=str(run / "mix"),
               QT_QPA_PLATFORM="offscreen")
    launcher = subprocess.run([sys.executable, "-c", LAUNCHER,
                               str(setup.build / "app" / "vkstats"), "auto", "--headless"],
                              env=env, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                              check=True)
    rss, code = launcher.stdout.split()
    return int(rss), int(code)


def run_curl(urls, folder):
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    args = ["curl", "-s", "-f"]
    for i, url in enumerate(urls):
        args += ["-o", str(folder / ("%d" % i)), url]
    start = time.monotonic()
    subprocess.run(args, check=True)
    return time.monotonic() - start


def run_wget_loop(urls, folder):
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    start = time.monotonic()
    for i, url in enumerate(urls):
        subprocess.run(["wget", "-q", "-O", str(folder / ("%d" % i)), url], check=True)
    return time.monotonic() - start


def median(values):
    values = sorted(values)
    return values[len(values) // 2]


def verdict(name, ratio, limit, at_least=False):
    met = ratio >= limit if at_least else ratio <= limit
    sign = ">=" if at_least else "<="
    print("  %-44s %6.2fx  (%s %.1fx: %s)" % (name, ratio, sign, limit, "met" if met else "MISSED"))
    return met


def timed(name, runs, action):
    times = [action() for _ in range(runs)]
    print("  %-24s median %7.3f s   (runs: %s)" % (name, median(times),
                                                   " ".join("%.3f" % t for t in times)))
    return median(times)


def vkstats_timed(setup, runs, expected_pages, name="vkstats", prefix=(), window=False):
    def once():
        # The window (drawn off screen) prints no status lines; its exit
        # status says whether the run saved. The genuine 2012 pages are stale
        # and their keys expired: such a run saves everything and exits 7.
        elapsed, out, err, code = run_vkstats(setup, prefix, "hide" if window else "--headless")
        good = sum(1 for line in out.splitlines() if re.search(r"\.\.\.(ok|good)\b", line))
        if code not in (0, 7) or (good != expected_pages and not window):
            print("vkstats run failed (exit %d):\n%s\n%s" % (code, out, err))
            sys.exit(1)
        return elapsed
    return timed(name, runs, once)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--build", required=True, type=pathlib.Path)
    parser.add_argument("--runs", type=int, default=5)
    parser.add_argument("--rtt", type=int, default=300, help="round trip of P4 in ms")
    parser.add_argument("--lifetime", type=int, default=900,
                        help="the relay stops by itself after this many seconds")
    parser.add_argument("--skip-memory", action="store_true")
    args = parser.parse_args()
    build = args.build.resolve()
    for tool in ("curl", "wget"):
        if not shutil.which(tool):
            sys.exit("netbench needs %s (apt-get install curl wget)" % tool)

    met = True
    with tempfile.TemporaryDirectory(prefix="netbench-") as tmp:
        root = pathlib.Path(tmp)
        setup = Setup(build, root / "pages")
        pinger = start_pinger(setup.served)
        pages = len(STATS_PAGES + SUITE_PAGES)

        print("== P1: %d pages from a pinger on loopback ==" % pages)
        urls = setup.point_at(pinger.server_address[1])
        vk = vkstats_timed(setup, args.runs, pages)
        curl = timed("curl, one call", args.runs, lambda: run_curl(urls, root / "curl"))
        vkstats_timed(setup, args.runs, pages, "window, for comparison", window=True)
        met &= verdict("vkstats / curl", vk / curl, 2.0)
        # The run ends by saving every page whole and durably (each file and
        # the data file synced to the disk), which curl does not: this shows
        # what the syncs cost on this disk.
        if shutil.which("eatmydata"):
            nosync = vkstats_timed(setup, args.runs, pages, "vkstats, no syncs", ["eatmydata"])
            print("  %-44s %6.2fx  (for comparison: the saves' syncs made no-ops)"
                  % ("vkstats without syncs / curl", nosync / curl))

        print("\n== P4: the same at %d ms round trip (delaying relay on loopback) ==" % args.rtt)
        relay = DelayRelay(pinger.server_address[1], args.rtt, args.lifetime)
        urls = setup.point_at(relay.port)
        vk = vkstats_timed(setup, args.runs, pages)
        vkstats_timed(setup, args.runs, pages, "window, for comparison", window=True)
        wget = timed("wget per file", args.runs, lambda: run_wget_loop(urls, root / "wget"))
        curl = timed("curl, one call", args.runs, lambda: run_curl(urls, root / "curl"))
        met &= verdict("wget loop / vkstats (speed-up)", wget / vk, 2.0, at_least=True)
        met &= verdict("vkstats / curl", vk / curl, 1.3)
        relay.stop()
        pinger.shutdown()

        if not args.skip_memory:
            print("\n== Memory: peak resident size of a headless run ==")
            print("  %-10s %12s %12s %8s" % ("mlist.txt", "page bytes", "peak RSS KiB", "ratio"))
            ratio = 0.0
            for mib in (1, 4, 16):
                # Just under the 16 MiB a page may have.
                page = mlist_page(mib * 1024 * 1024 - 4096)
                big = Setup(build, root / ("mem%d" % mib), mlist=page)
                server = start_pinger(big.served)
                big.point_at(server.server_address[1])
                rss, code = peak_rss_kib(big)
                server.shutdown()
                ratio = rss * 1024.0 / len(page)
                print("  %-10s %12d %12d %7.1fx%s" % ("%d MiB" % mib, len(page), rss, ratio,
                                                      "" if code == 0 else "  (exit %d)" % code))
            met &= verdict("peak RSS / page size at 16 MiB", ratio, 4.0)
    print("\nAll ratios %s" % ("met" if met else "NOT met (see above)"))


if __name__ == "__main__":
    main()
