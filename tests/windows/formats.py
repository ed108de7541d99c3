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
        said = (result.stderr + result.stdout).decode("utf-8", "replace").strip()
        raise Failure(f"{what}: exit status {result.returncode}\n{said[-3000:]}")
    return result


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
    name: str  # short name of the filter in `vex filters`
    files: tuple
    large: tuple  # how ffmpeg encodes the pictures and the sound of a file of gigabytes
    decoded: tuple = ()


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


MPEG4_MP3 = (*picture(4), *tone(4), "-c:v", "mpeg4", "-g", "12", "-bf", "0", "-c:a", "libmp3lame", "-b:a", "128k")
# Key frames only: Wine's codec misreads the code for blocks that stay as they were.
VIDEO_1 = (*picture(4, "64x48"), "-c:v", "msvideo1", "-keyint_min", "0")
# A melody: the place of a piece of it is found again.
MP3 = ("-f", "lavfi", "-i", "aevalsrc=0.4*sin(2*PI*t*(300+100*t)):sample_rate=44100:duration=8", "-c:a", "libmp3lame",
       "-b:a", "128k")
LARGE_MPEG4 = ("-c:v", "mpeg4", "-b:v", "40M", "-g", "50", "-c:a", "libmp3lame")
# The system's MP3 decoder adds noise of a step or two to what it rounds.
DITHER = 3

FORMATS = (
    Format("avi",
           files=(File("mpeg4_mp3.avi", (*MPEG4_MP3, "-vtag", "XVID")),
                  File("raw_pcm.avi", (*picture(3, "64x48"), *tone(3), "-c:v", "rawvideo", "-pix_fmt", "bgr24",
                                       "-c:a", "pcm_s16le")),
                  File("no_index.avi", make=avi_without_index)),
           large=(*LARGE_MPEG4, "-vtag", "XVID"),
           decoded=(Decoded(File("video1.avi", VIDEO_1), "avi", 1, swapped=True),
                    Decoded(File("video1.avi", VIDEO_1), "auto", 1, swapped=True),
                    Decoded(File("cinepak.avi", (*picture(4, "64x48"), "-c:v", "cinepak", "-g", "10")), "avi", 1),
                    Decoded(File("rgb.avi", (*picture(4, "64x48"), "-c:v", "rawvideo", "-pix_fmt", "bgr24")), "auto", 0),
                    Decoded(File("mp3.avi", MP3), "mp3", DITHER))),
    Format("mkv",
           files=(File("mpeg4_mp3.mkv", MPEG4_MP3),),
           large=LARGE_MPEG4,
           decoded=(Decoded(File("video1.mkv", VIDEO_1), "avi", 1, swapped=True),
                    Decoded(File("mp3.mkv", MP3), "mp3", DITHER))),
)

CINEPAK = (*picture(4, "64x48"), "-c:v", "cinepak", "-g", "10")
DECODED = {
    "mp3": (Decoded(File("mp3.mp3", MP3), "mp3", DITHER, seeks=False),),
    "mp4": (Decoded(File("cinepak.mov", CINEPAK), "avi", 1), Decoded(File("mp3.mp4", (*MP3, "-ac", "2")), "mp3", DITHER)),
    "flv": (Decoded(File("mp3.flv", MP3), "mp3", DITHER),),
    "asf": (Decoded(File("mp3.asf", MP3), "mp3", DITHER),),
    "mpeg": (Decoded(File("mp3.ts", MP3), "mp3", DITHER),),
}

# Every other format plays the small files that its own list names (tests/<format>/media.py).
FORMATS += tuple(Format(name, files=tuple(File(file, tuple(arguments)) for file, arguments in media.small.items()), large=(),
                        decoded=DECODED.get(name, ()))
                 for name, media in sorted(media_files.formats().items()) if name not in {row.name for row in FORMATS})

# Older filters over the handler of another.
SECOND_FILTERS = {"asf1", "mpeg1", "ogg1"}

# Played where a mangled name would lead: its samples are none of the others'.
DECOY = File("decoy.avi", (*picture(2, "80x60"), *tone(2), "-c:v", "mpeg4", "-c:a", "pcm_s16le"))


def ffmpeg(output, *arguments):
    must_succeed(subprocess.run(["ffmpeg", "-v", "error", "-nostdin", "-y", *map(str, arguments), "-fflags", "+bitexact",
                                 str(output)], capture_output=True, check=False), f"ffmpeg for {output.name}")


def make_large(directory, row, megabytes):
    """A file of at least so many megabytes: eight seconds, repeated without being encoded again."""
    extension = Path(row.files[0].name).suffix
    seed, path = directory / f"seed{megabytes}{extension}", directory / f"large{megabytes}{extension}"
    ffmpeg(seed, *picture(8, "1280x720"), *tone(8), "-vf", "noise=alls=20:allf=t", *row.large)
    ffmpeg(path, "-stream_loop", megabytes * 1000000 // seed.stat().st_size + 1, "-i", seed, "-map", "0", "-c", "copy")
    seed.unlink()
    return path


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
