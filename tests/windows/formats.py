"""The formats of the Windows tests: one row each. scripts/test-windows takes the rows whose filter the build has."""

import struct
import subprocess
import sys
from pathlib import Path
from typing import Callable, NamedTuple, Optional

sys.path.insert(0, str(Path(__file__).resolve().parent.parent / "support"))
import media_files  # noqa: E402


class Failure(Exception):
    pass


def require(holds, text):
    if not holds:
        raise Failure(text)


def must_succeed(result, what):
    if result.returncode != 0:
        said = (result.stdout + result.stderr).decode("utf-8", "replace").strip()
        raise Failure(f"{what}: exit status {result.returncode}\n{said[-3000:]}")
    return result


def output_of(what, *command, directory=None):
    """What a native command says, which must succeed."""
    return must_succeed(subprocess.run([*map(str, command)], cwd=directory, capture_output=True, timeout=600,
                                       stdin=subprocess.DEVNULL, check=False), what).stdout


class File(NamedTuple):
    """An input: what ffmpeg is told to write it, or a function that makes it from files of the rows above."""
    name: str
    arguments: tuple = ()
    make: Optional[Callable] = None


class Decoded(NamedTuple):
    """An input that a decoder of the system's plays: see GDecoder in test_graph.h for `decoder`."""
    file: File
    decoder: str
    # Largest difference to ffmpeg's decode: of a colour, or of a sound sample in steps of 16 bits.
    tolerance: int
    swapped: bool = False  # the decoder takes blue for red
    seeks: bool = True  # a seek lands on a packet that has the time it has in the file


class Format(NamedTuple):
    media: media_files.Format
    files: tuple
    decoded: tuple

    @property
    def name(self):
        """Short name of the filter in `vex filters`."""
        return self.media.name


def picture(seconds, size="160x120"):
    return ("-f", "lavfi", "-i", f"testsrc2=size={size}:rate=25:duration={seconds}")


def tone(seconds):
    return ("-f", "lavfi", "-i", f"sine=frequency=440:sample_rate=44100:duration={seconds}")


def avi_without_index(directory, name):
    """A copy of an AVI file whose index chunk is only padding and whose header does not promise one."""
    source = directory / "mpeg4_mp3.avi"
    data = bytearray(source.read_bytes())
    require(b"ix00" not in data and b"indx" not in data[:8192], f"{source.name} has an OpenDML index as well")
    position = 12
    while position + 8 <= len(data):
        kind, size = struct.unpack_from("<4sI", data, position)
        if kind == b"idx1":
            data[position:position + 4] = b"JUNK"
            data[position + 8:position + 8 + size] = bytes(size)
            break
        position += 8 + size + (size & 1)
    else:
        raise Failure(f"{source.name} has no idx1 chunk to take away")
    flags = data.index(b"avih") + 8 + 12
    struct.pack_into("<I", data, flags, struct.unpack_from("<I", data, flags)[0] & ~0x10)
    (directory / name).write_bytes(data)


# Key frames only: Wine's codec misreads the code for blocks that stay as they were.
VIDEO_1 = (*picture(4, "64x48"), "-c:v", "msvideo1", "-keyint_min", "0")
# A melody: the place of a piece of it is found again.
MP3 = ("-f", "lavfi", "-i", "aevalsrc=0.4*sin(2*PI*t*(300+100*t)):sample_rate=44100:duration=8", "-c:a", "libmp3lame",
       "-b:a", "128k")
# The system's MP3 decoder adds noise of a step or two to what it rounds.
DITHER = 3

CINEPAK = (*picture(4, "64x48"), "-c:v", "cinepak", "-g", "10")
DECODED = {
    "avi": (Decoded(File("video1.avi", VIDEO_1), "avi", 1, swapped=True),
            Decoded(File("video1.avi", VIDEO_1), "auto", 1, swapped=True),
            Decoded(File("cinepak.avi", CINEPAK), "avi", 1),
            Decoded(File("rgb.avi", (*picture(4, "64x48"), "-c:v", "rawvideo", "-pix_fmt", "bgr24")), "auto", 0),
            Decoded(File("mp3.avi", MP3), "mp3", DITHER)),
    "mkv": (Decoded(File("video1.mkv", VIDEO_1), "avi", 1, swapped=True), Decoded(File("mp3.mkv", MP3), "mp3", DITHER)),
    "mp3": (Decoded(File("mp3.mp3", MP3), "mp3", DITHER, seeks=False),),
    "mp4": (Decoded(File("cinepak.mov", CINEPAK), "avi", 1),
            Decoded(File("mp3.mp4", (*MP3, "-ac", "2")), "mp3", DITHER)),
    "flv": (Decoded(File("mp3.flv", MP3), "mp3", DITHER),),
    "asf": (Decoded(File("mp3.asf", MP3), "mp3", DITHER),),
    "mpeg": (Decoded(File("mp3.ts", MP3), "mp3", DITHER),),
}
DAMAGED = {"avi": (File("no_index.avi", make=avi_without_index),)}


# Every format plays the small files that its own list names (tests/<format>/media.py).
def small_files(media):
    return tuple(File(name, tuple(arguments)) for name, arguments in media.small.items())


FORMATS = tuple(Format(media, small_files(media) + DAMAGED.get(name, ()), DECODED.get(name, ()))
                for name, media in sorted(media_files.formats().items()))

# Older filters over the handler of another.
SECOND_FILTERS = {"asf1", "mpeg1", "ogg1"}

# Played where a mangled name would lead: its samples are none of the others'.
DECOY = File("decoy.avi", (*picture(2, "80x60"), *tone(2), "-c:v", "mpeg4", "-c:a", "pcm_s16le"))


def ffmpeg(output, *arguments):
    output_of(f"ffmpeg for {output.name}", "ffmpeg", "-v", "error", "-y", *arguments, "-fflags", "+bitexact", output)


def make_file(directory, file):
    """Writes the file unless it is there already; returns its path."""
    path = directory / file.name
    if path.exists():
        return path
    if file.make:
        file.make(directory, file.name)
    else:
        ffmpeg(path, *file.arguments)
    return path
