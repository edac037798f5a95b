"""The demo's recordings are videos that a real player shows, each of its own camera and time."""
import base64
import subprocess

from places import SOURCE
from waiting import SECONDS

# What a player makes of a video: its length, size, and the samples at these seconds. "seeked" may
# come before the picture does: the one drawn is one of which the player says which second it is of.
PLAY = """
const [source, seconds, done] = arguments;
const video = document.createElement('video');
const pictures = [];
function seek() {
    video.requestVideoFrameCallback(shown);
    video.currentTime = seconds[pictures.length];
}
function shown(now, picture) {
    if (picture.mediaTime != Math.floor(seconds[pictures.length])) {
        video.requestVideoFrameCallback(shown);
        return;
    }
    const canvas = document.createElement('canvas');
    [canvas.width, canvas.height] = [video.videoWidth, video.videoHeight];
    const surface = canvas.getContext('2d');
    surface.drawImage(video, 0, 0);
    pictures.push(Array.from(surface.getImageData(0, 0, canvas.width, canvas.height).data)
        .filter((sample, index) => index % 4 == 1));
    if (pictures.length < seconds.length) { seek(); return; }
    done([video.duration, canvas.width, canvas.height, pictures]);
}
video.onerror = () => done(video.error.message);
video.onloadeddata = seek;
video.src = 'data:video/mp4;base64,' + source;
"""
WIDTH, HEIGHT = 320, 192


def make(name, file):
    subprocess.run([SOURCE / "scripts/demo_video", name, file], check=True, timeout=SECONDS)
    return base64.b64encode(file.read_bytes()).decode()


def play(browser, source, *seconds):
    browser.driver.get("about:blank")
    played = browser.driver.execute_async_script(PLAY, source, seconds)
    assert not isinstance(played, str), played
    length, width, height, pictures = played
    assert (length, width, height) == (10, WIDTH, HEIGHT)
    return pictures


def bar(picture):
    """How many samples of the last row are light."""
    row = picture[-WIDTH:]
    middle = (min(row) + max(row)) / 2
    return sum(sample > middle for sample in row)


def test_a_recording_plays_from_any_second(browser, tmp_path):
    source = make("Front door", tmp_path / "2026-11-20/08-00-00.mp4")
    pictures = play(browser, source, 0.5, 4.5, 8.5, 2.5)
    assert [bar(picture) for picture in pictures] == [32, 160, 288, 96]


def test_another_camera_and_another_time_are_another_picture(browser, tmp_path):
    shown = [play(browser, make(name, tmp_path / name / file), 0.5)[0] for name, file in (
        ("Front door", "2026-11-20/08-00-00.mp4"), ("Front door", "2026-11-20/08-01-00.mp4"),
        ("Front door", "2026-11-21/08-00-00.mp4"), ("Car park", "2026-11-20/08-00-00.mp4"))]
    assert len({bytes(picture) for picture in shown}) == 4
