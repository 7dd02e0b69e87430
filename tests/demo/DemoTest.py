"""Runs the demo's application with a pipe and with a terminal, and checks its output."""

import os
import pty
import re
import subprocess

ESCAPE = "\x1b["


def command(*options):
    return [os.environ["KIV_SANDBOX"], "--lazy", "--", os.environ["KIV_DEMO_HOST"], *options]


def printed(*options):
    return subprocess.run(command(*options), stdout=subprocess.PIPE, encoding="utf-8", check=True).stdout


def on_a_terminal(**environment):
    shown, terminal = pty.openpty()
    with subprocess.Popen(command(), stdout=terminal, env={**os.environ, **environment}) as process:
        os.close(terminal)
        text = b""
        # Reading from a terminal that no process holds any more is an error.
        try:
            while part := os.read(shown, 4096):
                text += part
        except OSError:
            pass
        os.close(shown)
    assert process.returncode == 0
    return text.decode().replace("\r\n", "\n")


def test_the_story_tells_what_is_done_and_what_the_home_is_like_then():
    chapters = re.split(r"^\d\. ", printed(), flags=re.MULTILINE)
    assert len(chapters) == 10
    assert all("home" in chapter for chapter in chapters[1:])
    assert "Living room left  Living room 02:4b:49:56:00:01 network volume 20\n" in chapters[1]
    started = next(chapter for chapter in chapters if "StartNetworkSpeaker " in chapter)
    assert "3 speakers play now\n" in started
    assert "Subwoofer         Living room 02:4b:49:56:00:03 network volume 15   channel 3\n" in started
    assert "Receiver          with Dolby Atmos\n" in chapters[8]
    assert "The home is as it was.\n" in chapters[2]


def test_the_story_fits_a_terminal_of_80_columns():
    assert [line for line in printed().splitlines() if len(line) > 80] == []


def test_a_pipe_gets_no_colour():
    assert ESCAPE not in printed()


def test_a_terminal_gets_colour_unless_it_is_refused():
    coloured = on_a_terminal()
    assert ESCAPE in coloured
    assert re.sub(r"\x1b\[[0-9;]*m", "", coloured) == printed()
    assert on_a_terminal(NO_COLOR="1") == printed()
    assert ESCAPE in on_a_terminal(NO_COLOR="")


def test_the_trace_has_lines_that_stand_among_others():
    lines = printed("--trace").splitlines()
    assert all(line.startswith("TV: ") for line in lines if line)
    assert "TV: --- inventory ---" in lines
    assert not any("network volume" in line for line in lines)


def test_a_monitor_thread_that_begins_late_costs_no_event():
    sandbox, *end_of_options, host = command()
    slowly = ["env", f"LD_PRELOAD={os.environ['SLOW_THREADS']}", host]
    assert subprocess.run([sandbox, *end_of_options, *slowly], stdout=subprocess.PIPE).returncode == 0
