"""Holds what a decoder of the system's made of our samples against ffmpeg's decode of the same file."""

import json
import random
from array import array

from formats import must_succeed, output_of, require

SEEKS = 20
MP3_FRAME = 1152  # sound samples
# A decoder that starts in the middle lacks what earlier frames hold of the first ones: they are left out.
MP3_SETTLED, MP3_COMPARED = 4, 2  # frames


def check(context, clsid, row, path):
    """Plays, seeks and compares; returns a note for the report."""
    sound = row.decoder == "mp3"
    duration = native(context, "probe", path)["duration"]
    chance = random.Random(path.name)
    targets = [chance.randrange(duration * 17 // 20) for _ in range(SEEKS)]
    per_seek = MP3_SETTLED + MP3_COMPARED + 1 if sound else 1
    output = path.with_name(f"{path.name}.{row.decoder}.decoded")
    said = must_succeed(context.graph("decode", row.decoder, clsid, f"C:\\vex\\{path.name}", f"C:\\vex\\{output.name}",
                                      str(per_seek), *map(str, targets)), "decoding").stdout
    lines = [json.loads(line) for line in said.decode("utf-8").splitlines()]
    data = output.read_bytes()
    output.unlink()
    landings = [seek["pins"][0] for seek in native(context, "seek", path, *(f"{time}hns" for time in targets))["seeks"]]
    for landing in landings:
        require(landing["samples"], f"no sample after the seek to {landing['reached']}")
    times = [landing["reached"] + landing["samples"][0]["start"] for landing in landings]
    return (sounds if sound else pictures)(context, row, path, lines, data, times)


def native(context, command, path, *arguments):
    said = output_of(f"the native {command}", context.native, command, "--json", path, *arguments)
    return json.loads(said)["files"][0]


def by_ffmpeg(path, *arguments):
    return output_of(f"ffmpeg decoding {path.name}", "ffmpeg", "-v", "error", "-i", path, *arguments, "-")


def split(lines, data):
    """The decoded samples of the whole file as (start, bytes), and of each seek as one text of bytes."""
    whole, seeks, at = [], [], 0
    last = None
    for line in lines[1:]:
        piece = data[at:at + line["size"]]
        at += line["size"]
        if line["seek"] is None:
            whole.append((line["start"], piece))
        elif line["seek"] == last:
            seeks[-1] += piece
        else:
            seeks.append(piece)
        last = line["seek"]
    return whole, seeks


# ---- pictures -------------------------------------------------------------------------------------------------------

def as_ffmpeg(picture, width, height, swapped):
    """Bitmaps begin with the lowest line when their height is positive; each line fills up to four bytes."""
    line, row = (width * 3 + 3) // 4 * 4, width * 3
    rows = [picture[i * line:i * line + row] for i in range(abs(height))]
    whole = bytearray(b"".join(rows if height < 0 else reversed(rows)))
    if swapped:
        whole[0::3], whole[2::3] = whole[2::3], whole[0::3]
    return whole


def distance(ours, theirs):
    if ours == theirs:
        return 0
    require(len(ours) == len(theirs), f"a picture of {len(ours)} bytes instead of {len(theirs)}")
    return max(abs(a - b) for a, b in zip(ours, theirs))


def pictures(context, row, path, lines, data, times):
    del context
    width, height = lines[0]["width"], lines[0]["height"]
    frame = width * abs(height) * 3
    raw = by_ffmpeg(path, "-map", "0:v:0", "-fps_mode", "passthrough", "-f", "rawvideo", "-pix_fmt", "bgr24")
    expected = [raw[i:i + frame] for i in range(0, len(raw), frame)]
    whole, seeks = split(lines, data)
    require(len(whole) == len(expected), f"{len(whole)} pictures are decoded, ffmpeg decodes {len(expected)}")
    worst = 0
    for index, ((_, picture), reference) in enumerate(zip(whole, expected)):
        far = distance(as_ffmpeg(picture, width, height, row.swapped), reference)
        require(far <= row.tolerance, f"picture {index} is {far} off ffmpeg's, of {row.tolerance} allowed")
        worst = max(worst, far)

    index_of = {start: index for index, (start, _) in enumerate(whole)}
    require(len(seeks) == len(times), f"{len(seeks)} pictures after {len(times)} seeks")
    for picture, time in zip(seeks, times):
        require(time in index_of, f"a seek lands at {time}, where no picture is")
        far = distance(as_ffmpeg(picture, width, height, row.swapped), expected[index_of[time]])
        require(far <= row.tolerance, f"the first picture after a seek is not number {index_of[time]}: {far} off")
    return f"{len(whole)} pictures within {worst} of ffmpeg's, {len(seeks)} right after a seek"


# ---- sound ----------------------------------------------------------------------------------------------------------

def pcm(data):
    samples = array("h")
    samples.frombytes(data[:len(data) // 2 * 2])
    return samples


def farthest(ours, theirs, enough):
    """Largest difference of the two, or the first beyond `enough`."""
    worst = 0
    for a, b in zip(ours, theirs):
        worst = max(worst, abs(a - b))
        if worst > enough:
            break
    return worst


def shift_between(ours, theirs, tolerance):
    """By how many samples ours begin earlier: ffmpeg leaves out what the encoder put before the sound."""
    middle, length = len(theirs) // 2, 512
    piece = theirs[middle:middle + length]
    for shift in range(-3 * MP3_FRAME, 3 * MP3_FRAME):
        if farthest(ours[middle + shift:middle + shift + length], piece, tolerance) <= tolerance:
            return shift
    return None


def sounds(context, row, path, lines, data, times):
    require(lines[0]["bits"] == 16, f"{lines[0]['bits']} bits are decoded")
    channels = lines[0]["channels"]
    whole, seeks = split(lines, data)
    ours = pcm(b"".join(piece for _, piece in whole))
    theirs = pcm(by_ffmpeg(path, "-map", "0:a:0", "-f", "s16le"))
    shift = shift_between(ours, theirs, row.tolerance)
    require(shift is not None, "the decoded sound is not ffmpeg's, however it is aligned")
    start, end = max(0, -shift), min(len(theirs), len(ours) - shift)
    require(end - start > len(theirs) - 2 * MP3_FRAME * channels,
            f"{len(ours)} sound samples are decoded, ffmpeg decodes {len(theirs)}")
    # The first frame has nothing before it in one decoder and silence in the other.
    start += MP3_FRAME * channels
    far = farthest(ours[start + shift:end + shift], theirs[start:end], row.tolerance)
    require(far <= row.tolerance, f"the decoded sound is {far} off ffmpeg's, of {row.tolerance} allowed")

    require(len(seeks) == len(times), f"sound after {len(seeks)} of {len(times)} seeks")
    if not row.seeks:
        return f"{len(ours)} sound samples within {far} of ffmpeg's"
    starts = packet_starts(context, path)
    for data_of_seek, time in zip(seeks, times):
        require(time in starts, f"a seek lands at {time}, where no packet is")
        first = (starts.index(time) + MP3_SETTLED) * MP3_FRAME * channels - shift
        piece = pcm(data_of_seek)[MP3_SETTLED * MP3_FRAME * channels:][:MP3_COMPARED * MP3_FRAME * channels]
        require(len(piece) == MP3_COMPARED * MP3_FRAME * channels, f"too little sound after the seek to {time}")
        off = farthest(piece, theirs[first:first + len(piece)], row.tolerance)
        require(off <= row.tolerance, f"the sound after a seek is not that of packet {starts.index(time)}: {off} off")
    return f"{len(ours)} sound samples within {far} of ffmpeg's, also after {len(seeks)} seeks"


def packet_starts(context, path):
    text = output_of("the native dump", context.native, "dump", "--json", path)
    rows = [json.loads(line) for line in text.decode("utf-8").splitlines()]
    return [row["start"] for row in rows if row.get("pin") == 0 and "start" in row]
