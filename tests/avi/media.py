"""AVI files: see tests/support/media_files.py."""

from media_files import noise, tone, video

EXTENSION = "avi"
LARGE = [*noise(), *tone(8), "-c:v", "mpeg4", "-b:v", "8M", "-g", "50", "-c:a", "libmp3lame", "-b:a", "128k"]
SMALL = {
    "mpeg4_mp3.avi": [*video(4), *tone(4), "-c:v", "mpeg4", "-vtag", "XVID", "-g", "12", "-bf", "0",
                      "-c:a", "libmp3lame", "-b:a", "128k"],
    "raw_pcm.avi": [*video(3, "64x48"), *tone(3), "-c:v", "rawvideo", "-pix_fmt", "bgr24", "-c:a", "pcm_s16le"],
}
