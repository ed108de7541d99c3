"""Downloads by the MP4 filter, natively and under Wine: what is asked of the server, what the host sees."""

import pathlib
import re
import sys
from typing import NamedTuple

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "support"))
import odd_server  # noqa: E402  (found through the line above)

WHOLE = [50, 5]  # samples of the two pins
S_OK, E_FAIL = "00000000", "80004005"


class Failure(Exception):
    pass


def require(condition, what):
    if not condition:
        raise Failure(what)


class Case(NamedTuple):
    path: str
    pins: int = 2
    reason: str = "^$"       # a regular expression for why it failed, or why the file is not whole
    wine: str = None         # the same where Wine's client says something else
    whole: bool = True       # every sample arrives
    known: bool = True       # the length is announced, so that the progress is told
    runs: bool = True        # the server gives something, so that there is a state 2


NOT_WHOLE = "^the file did not arrive whole: "
CASES = [
    Case("length"),
    Case("none", known=False),
    Case("chunked", known=False),
    Case("bytes"),
    Case("moved"),
    Case("cut", reason=NOT_WHOLE, whole=False),
    Case("cut-early", pins=0, reason=NOT_WHOLE + ".*; "),
    Case("reset", reason=NOT_WHOLE, whole=False),
    # Wine's client takes the end of the connection for the end of the body.
    Case("chunked-cut", reason=NOT_WHOLE, wine="^$", whole=False, known=False),
    Case("short", whole=False),
    Case("empty", pins=0, reason="^the server sent an empty file$", known=False),
    Case("page", pins=0, reason="movie header|moov|MP4"),
    Case("gone", pins=0, reason="^the server answered 404 Not Found$", known=False, runs=False),
    Case("broken", pins=0, reason="^the server answered 500 Internal Server Error$", known=False, runs=False),
    Case("round", pins=0, reason="^the download failed: .*redirects", known=False, runs=False),
    Case("secure", pins=0, reason="^the download failed: .", known=False, runs=False),
    Case("nothing", pins=0, reason="^the download failed: .", known=False, runs=False),
]
# Where Wine's client has ways of its own.
NATIVE_CASES = [
    Case("elsewhere", pins=0, reason="^the download failed: .*file", known=False, runs=False),
    Case("nowhere", pins=0, reason="^the server answered 302 Found$", known=False, runs=False),
    Case("continue"),
    Case("huge", reason=NOT_WHOLE + ".*42949", whole=False),
    Case("endless-page", pins=0, reason="^the server answered 404 Not Found$", known=False, runs=False),
]


class Said:
    """What the client printed: a word and a value in each line."""

    def __init__(self, text):
        self.lines = [line.partition(" ")[::2] for line in text.splitlines()]

    def all(self, word):
        return [value for key, value in self.lines if key == word]

    def one(self, word):
        values = self.all(word)
        require(len(values) == 1, f"{word}: {values} in {self.lines}")
        return values[0]


def check_states(states, runs, to_the_end=True):
    """The client asks every millisecond and may miss a state, but sees none in a wrong order."""
    possible = {"0", "2", "3"} if runs else {"0", "3"}
    require(states == sorted(set(states)) and set(states) <= possible, f"states {states}")
    require(not to_the_end or states[-1] == "3", f"loading is not over after {states}")


def check(said, case, wine=False):
    reason = case.wine if wine and case.wine else case.reason
    require(said.one("load") == S_OK, f"Load says {said.one('load')}")
    check_states(said.all("state"), case.runs)
    require(int(said.one("pins")) == case.pins, f"{said.one('pins')} pins, because: {said.one('reason')}")
    require(re.search(reason, said.one("reason")), f"the reason is {said.one('reason')!r}")
    samples = list(map(int, said.all("samples")))
    require(case.pins == 0 or (samples == WHOLE) == case.whole, f"{samples} samples")
    require(case.pins == 0 or not case.whole or int(said.one("available")) > 0, "no available time")
    percents = list(map(int, said.all("percent")))
    require(percents == sorted(percents) and max(percents, default=0) <= 100 and bool(percents) == case.known,
            f"told {percents} percent")
    require(not case.known or not case.whole or case.pins == 0 or percents[-1] == 100, f"ends at {percents} percent")
    require(said.one("files") == "1", "there is one temporary file until the filter is gone")
    require(said.one("left") == "0", "a file is left behind")


class Downloads:
    """`run(*words, environment_more)` runs the client to its end, which must be good, and returns what it printed;
    `start` gives a process with a pipe to read from; both begin where `film` is, which the client made."""

    def __init__(self, run, start, film, wine=False):
        self.run, self.start, self.wine = run, start, wine
        self.film = film

    def load(self, url, **environment):
        return Said(self.run("load", url, environment_more=environment))

    def server(self, *asked):
        return odd_server.OddServer(self.film.read_bytes(), *asked)

    def case(self, case):
        with self.server() as server:
            said = self.load(server.url + case.path)
            # Wine's client may drop what it had when the reset came.
            if self.wine and case.path == "reset" and said.one("pins") == "0":
                case = case._replace(pins=0, reason="^the download failed: .", known=bool(said.all("percent")))
            check(said, case, self.wine)
            agents = set(re.findall("User-Agent: (.*)\r", "".join(server.requests)))
            require(case.path == "secure" or agents == {"GHttpCacheFile"}, f"the agents are {agents}")
            fresh = all(re.search("(Cache-Control|Pragma): no-cache", request) for request in server.requests)
            require(fresh or self.wine, "a cache may answer")
            # Wine's client goes on until it is told.
            require(case.path != "round" or self.wine or len(server.requests) <= 12,
                    f"{len(server.requests)} requests in a loop")

    def from_files(self):
        with odd_server.FileServer(self.film.parent) as url:
            check(self.load(url + self.film.name), Case(""), self.wine)
            missing = self.load(url + "missing.mp4")
            check(missing, Case("", pins=0, reason="^the server answered 404 ", known=False, runs=False), self.wine)

    def states(self):
        """None of the three is skipped when the host is given the time to see them."""
        with self.server() as server, self.start("load", server.url + "held") as client:
            lines = []
            for line in client.stdout:
                lines.append(line.decode("utf-8").rstrip("\r\n"))
                if lines[-1] == "state 2":
                    server.go_on.set()
            require(client.wait() == 0, "the client failed")
        said = Said("\n".join(lines))
        require(said.all("state")[-2:] == ["2", "3"], f"states {said.all('state')}")
        check(said, Case("held"), self.wine)

    def released(self, path, state):
        """The filter goes while the server would keep it waiting for ever."""
        asked = self.film.with_name("asked")
        asked.unlink(missing_ok=True)
        with self.server(asked.touch) as server:
            said = Said(self.run("release", server.url + path, state, asked.name))
            require(said.one("state") == state and said.one("left") == "0", f"says {said.lines}")
            require(server.closed.wait(60), "the connection stays open")

    def unusual_urls(self):
        with self.server() as server:
            high = "\u00e9" if self.wine else "\udce9"  # the byte 0xE9 of the code page, and as it is
            url = server.url.replace("http://", "HTTP://") + f"length/a b{high}?x=%20y"
            check(self.load(url), Case(""), self.wine)
            require("GET /length/a%20b%e9?x=%20y HTTP" in server.requests[0], f"asks {server.requests[0]!r}")

    def long_urls(self):
        with self.server() as server:
            longest = server.url + "length/"
            longest += "x" * (2047 - len(longest))
            check(self.load(longest), Case(""), self.wine)
            require(longest[-2000:] in server.requests[0], "the URL is cut")
            refused = self.load(longest + "x")
            require(refused.one("load") == E_FAIL and refused.one("reason") == "the URL is too long",
                    str(refused.lines))
            require(refused.one("left") == "0" and len(server.requests) == 1, "asks for it nevertheless")

    def proxy(self):
        with self.server() as server:
            check(self.load("www.far.invalid/length", http_proxy=server.url), Case(""), self.wine)
            line = r"GET http://www\.far\.invalid(:80)?/length HTTP"
            require(re.match(line, server.requests[0]), f"asks {server.requests[0]!r}")

    def storm(self, count, seed=1):
        with self.server() as server:
            paths = ("length", "none", "bytes", "slow", "silent", "stalled", "reset", "gone", "moved", "page")
            urls = [server.url + path for path in paths]
            said = Said(self.run("storm", str(count), str(seed), *urls))
            require(said.one("left") == "0", "a file is left behind")
            # Under Wine /proc/self is the Wine server.
            require(self.wine or (said.one("threads") == "0" and int(said.one("files")) <= 0),
                    f"{said.one('threads')} threads and {said.one('files')} files are left open")

    def all(self, rounds):
        """Pairs of a name and a function."""
        for case in CASES + ([] if self.wine else NATIVE_CASES):
            yield case.path, lambda case=case: self.case(case)
        yield "files", self.from_files
        yield "states", self.states
        for path, state in (("silent", "0"), ("stalled", "2"), ("slow", "2")):
            yield f"release {path}", lambda path=path, state=state: self.released(path, state)
        yield "unusual URLs", self.unusual_urls
        yield "long URLs", self.long_urls
        yield "proxy", self.proxy
        yield "storm", lambda: self.storm(rounds)
