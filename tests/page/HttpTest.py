"""Tests of the page by a plain HTTP client: who may see it, and what a viewer costs."""

import contextlib
import json
import os
import shutil
import socket
import subprocess

import pytest
from Page import PROGRAM, sandbox, wait_for


@pytest.fixture(scope="module")
def page():
    with sandbox("--page") as running:
        yield running


def test_the_page_has_a_strict_policy(page):
    response = page.ask()
    assert response.status == 200
    assert response.headers["Content-Type"] == "text/html; charset=utf-8"
    policy = response.headers["Content-Security-Policy"]
    assert "default-src 'none'" in policy and "unsafe" not in policy and "frame-ancestors 'none'" in policy
    assert response.headers["X-Content-Type-Options"] == "nosniff"
    assert response.headers["Referrer-Policy"] == "no-referrer"
    text = response.read().decode()
    assert "<script src=" in text and "<script>" not in text and "style=" not in text


@pytest.mark.parametrize("path", ["/", "/events", "/page.js", "/0123456789abcdef0123456789abcdef/", "/../"])
def test_nothing_is_served_without_the_token(page, path):
    response = page.ask(path)
    assert response.status == 404
    assert b"kiv" not in response.read()


def test_a_token_is_another_each_time(page):
    with sandbox("--page") as other:
        assert other.parts.path != page.parts.path
        assert len(other.parts.path.strip("/")) == 32
        assert page.ask(other.parts.path).status == 404


@pytest.mark.parametrize("host", ["evil.example", "localhost.evil.example:80", "127.0.0.1", None])
def test_another_host_is_refused(page, host):
    assert page.ask(Host=host).status in (400, 403)


@pytest.mark.parametrize("origin", ["http://evil.example", "https://{}", "null", "http://{}.evil.example", None])
def test_a_button_is_not_pressed_from_another_origin(page, origin):
    before = json.loads(page.run("$KIV_SANDBOX control show"))["receiverHasAtmos"]
    given = origin.format(page.parts.netloc) if origin else None
    words = json.dumps(["atmos", "off" if before else "on"])
    assert page.ask("control", "POST", words, Origin=given).status == 403
    assert json.loads(page.run("$KIV_SANDBOX control show"))["receiverHasAtmos"] == before


def test_another_origin_reads_nothing(page):
    assert page.ask("events", Origin="http://evil.example").status == 403


def test_it_listens_on_the_loopback_only(page):
    port = f"{page.parts.port:04X}"
    with open("/proc/net/tcp", encoding="utf-8") as table:
        listening = [line.split()[1] for line in table if line.split()[3] == "0A"]
    assert [address for address in listening if address.endswith(":" + port)] == [f"0100007F:{port}"]


@pytest.mark.parametrize("body", ["", "{", '"atmos on"', '["atmos", 1]', "[[]]"])
def test_what_is_not_a_list_of_words_is_refused(page, body):
    assert page.ask("control", "POST", body).status == 400


def test_a_long_request_is_refused(page):
    assert page.ask("control", "POST", json.dumps(["apply", "x" * 100000])).status == 413


@pytest.mark.parametrize("method", ["PUT", "DELETE", "OPTIONS"])
def test_other_methods_are_refused(page, method):
    assert page.ask("control", method, "[]", Origin=f"http://{page.parts.netloc}").status == 405


def test_a_button_is_a_command_of_the_shell(page):
    assert page.control("atmos", "on") == {"exitCode": 0, "output": ""}
    assert json.loads(page.control("show")["output"])["receiverHasAtmos"] is True
    refused = page.control("atmos", "perhaps")
    assert refused["exitCode"] == 2 and "perhaps" in refused["output"]
    assert page.control("atmos", "off")["exitCode"] == 0


def test_a_viewer_is_told_of_each_change_and_message():
    with sandbox("--page") as page:
        events = page.events()
        home = next(event["home"] for event in events if "home" in event)
        assert home["speakers"][0]["volume"] == 20
        page.say("$KIV_SANDBOX control volume 02:4b:49:56:00:01 44")
        assert next(event for event in events if "home" in event)["home"]["speakers"][0]["volume"] == 44
        page.say("$KIVCTL stop --type 7")
        call = next(event for event in events if event.get("method") == "StopNetworkSpeaker")
        assert call["arguments"] == "(7,)" and call["sender"].startswith(":")
        assert next(event for event in events if event.get("answer") == call["call"])["values"] == "(7,)"


def test_a_viewer_is_told_what_the_library_logs_and_what_it_means():
    with sandbox("--page", "--no-server") as page:
        page.say("$KIVCTL --verbose stop")
        line = next(event for event in page.events() if event.get("function") == "StopNetworkSpeaker" and " E " in event["log"])
        assert line["meaning"] and line["advice"]
        wait_for(lambda: any("StopNetworkSpeaker" in error for error in page.errors), "the line on stderr")


def test_a_failure_is_told_in_doctors_words():
    with sandbox("--page") as page:
        page.run("""$KIV_SANDBOX control fault check_dbus_connection '{"error": "org.example.Odd", "message": "as told"}'""")
        lines = page.run("$KIVCTL --json doctor 2>/dev/null").splitlines()
        doctor = next(line for line in map(json.loads, lines) if line.get("check") == "call")
        told = next(event for event in page.events() if event.get("error") == "org.example.Odd")
        assert doctor["state"] == "problem"
        assert (told["found"], told["advice"]) == (doctor["found"], doctor["advice"])


def test_an_event_is_told_as_kivctl_shows_it():
    with sandbox("--page") as page:
        page.say("$KIVCTL monitor >/dev/null &")
        events = page.events()
        next(event for event in events if event.get("home", {}).get("clients"))
        page.say("$KIV_SANDBOX control volume 02:4b:49:56:00:01 44; $KIV_SANDBOX control payload '01 02 03'")
        decoded = [next(event for event in events if "event" in event)["decoded"] for _ in range(2)]
        assert decoded[0].startswith("event 0x02020040 volume, length 14: mac 02:4b:49:56:00:01") and decoded[0].endswith("volume 44")
        assert decoded[1] == "event of 3 bytes, without a whole head"


def test_a_layout_that_cannot_be_used_is_told(tmp_path):
    file = tmp_path / "layout.json"
    file.write_text("{}", encoding="utf-8")
    done = subprocess.run([PROGRAM, "--layout", str(file), "--page", "--", "true"], capture_output=True, encoding="utf-8", check=False)
    assert done.returncode == 125
    assert f'{file}: "records" is missing' in done.stderr


def test_a_viewer_that_comes_back_goes_on_where_it_was():
    with sandbox("--page") as page:
        page.run("$KIVCTL stop --type 1")
        response = page.ask("events")
        last = None
        for line in response:
            if line.startswith(b"id: "):
                last = line[4:].strip().decode()
            if b'"method":"StopNetworkSpeaker"' in line:
                break
        page.run("$KIVCTL stop --type 2")
        again = page.ask("events", Last_Event_ID=last)
        told = []
        while not told or b'"(2,)"' not in told[-1]:
            told.append(next(again))
        assert not any(b'"arguments":"(1,)"' in line for line in told)


def memory_of(pid):
    with open(f"/proc/{pid}/statm", encoding="utf-8") as statm:
        return int(statm.read().split()[1]) * os.sysconf("SC_PAGE_SIZE")


def test_a_viewer_that_does_not_read_costs_no_memory_and_delays_nobody():
    with sandbox("--page") as page:
        slow = [socket.create_connection((page.parts.hostname, page.parts.port)) for _ in range(8)]
        for viewer in slow:
            viewer.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
            viewer.sendall(f"GET {page.parts.path}events HTTP/1.1\r\nHost: {page.parts.netloc}\r\n\r\n".encode())
        page.say("$KIVCTL monitor >/dev/null &")
        events = page.events()
        next(event for event in events if event.get("home", {}).get("clients"))
        before = memory_of(page.child("kiv-sandbox-page"))
        page.say("$KIV_SANDBOX control payloads \"$(printf '%08000d' 0)\" 600 >/dev/null")
        for _ in range(600):
            next(event for event in events if "event" in event)
        # The history may grow, but no viewer may have a queue of its own.
        assert memory_of(page.child("kiv-sandbox-page")) - before < 40 << 20
        for viewer in slow:
            viewer.close()


def test_commands_that_wait_hinder_no_other():
    with sandbox("--page") as page:
        waiting = [page.send("control", "POST", '["await-change"]') for _ in range(8)]
        assert page.control("show")["exitCode"] == 0
        # A command that starts too late for one change waits for the next change.
        page.say("for i in $(seq 100); do $KIV_SANDBOX control atmos on; $KIV_SANDBOX control atmos off; done &")
        assert {command.getresponse().status for command in waiting} == {200}


def test_the_history_is_limited_and_what_is_missed_is_told(tmp_path):
    file = tmp_path / "large.jsonl"
    line = {"ms": 1, "call": 1, "method": "StopNetworkSpeaker", "arguments": f"('{'x' * 900000}',)"}
    file.write_text("".join(json.dumps(line | {"call": number}) + "\n" for number in range(1, 77)), encoding="utf-8")
    with sandbox("--show", str(file), command=()) as page:
        events = page.events(Last_Event_ID="0")
        missed = next(event for event in events if "missed" in event)["missed"]
        assert missed > 0
        assert next(events)["call"] == missed + 2


def test_viewers_and_buttons_that_go_away_leave_nothing_behind():
    with sandbox("--page") as page:
        pid = page.child("kiv-sandbox-page")

        def descriptors():
            return len(os.listdir(f"/proc/{pid}/fd"))

        page.control("atmos", "off")  # opens the files that stay open
        before = descriptors()
        # A browser would keep this connection for its next request.
        for path in ["", "no-such-file"] * 10:
            page.ask(path).read()
        for path, method, body in [("events", "GET", None)] * 20 + [("control", "POST", '["await-change"]')] * 4:
            with socket.create_connection((page.parts.hostname, page.parts.port)) as gone:
                length = f"Content-Length: {len(body)}\r\n" if body else ""
                origin = f"Origin: http://{page.parts.netloc}\r\n" if body else ""
                gone.sendall(f"{method} {page.parts.path}{path} HTTP/1.1\r\nHost: {page.parts.netloc}\r\n{origin}{length}\r\n{body or ''}".encode())
        page.control("atmos", "on")  # is served after the requests of the clients that have gone
        page.say("for i in $(seq 300); do $KIV_SANDBOX control atmos on; $KIV_SANDBOX control atmos off; done &")
        wait_for(lambda: descriptors() <= before, "their descriptors")
        assert page.ask().status == 200


def sockets(page):
    """Returns the sockets of the page's process."""
    found = set()
    with os.scandir(f"/proc/{page.process.pid}/fd") as descriptors:
        for descriptor in descriptors:
            with contextlib.suppress(OSError):  # it has been closed
                found.add(os.readlink(descriptor.path))
    return {name for name in found if name.startswith("socket:")}


def test_a_viewer_that_goes_is_noticed_while_nothing_happens(tmp_path):
    file = tmp_path / "morning.jsonl"
    file.write_text(RECORDING, encoding="utf-8")
    with sandbox("--show", str(file), command=()) as page:
        before = sockets(page)
        viewer = page.ask("events")
        connection = sockets(page) - before
        assert connection
        viewer.close()
        wait_for(lambda: not connection & sockets(page), "the page to close the connection")


def test_names_and_texts_are_data():
    with sandbox("--page") as page:
        name = "</script><img src=x onerror=alert(1)>\u2028"
        scenario = {"home": {"speakers": [{"name": name, "mac": "02:4b:49:56:00:31"}]}}
        events = page.events()
        page.say(f"echo '{json.dumps(scenario)}' | $KIV_SANDBOX control apply -")
        assert next(e for e in events if "home" in e and e["home"]["speakers"][0]["name"] == name)


def test_a_sandbox_without_a_page_starts_and_links_none():
    linked = subprocess.run(["ldd", PROGRAM], capture_output=True, encoding="utf-8", check=True).stdout
    assert "soup" not in linked
    printed = subprocess.run([PROGRAM, "--", "ps", "-eo", "comm"], capture_output=True, encoding="utf-8", check=True).stdout
    assert "kiv-sandbox" in printed


def test_a_sandbox_without_the_program_of_the_page_says_so(tmp_path):
    alone = shutil.copy(PROGRAM, tmp_path / "kiv-sandbox")
    done = subprocess.run([alone, "--page", "--no-server", "--", "true"], capture_output=True, encoding="utf-8", check=False)
    assert done.returncode == 125
    assert "kiv-sandbox: there is no page, because kiv-sandbox-page was not found; install kiv-tools-page" in done.stderr
    assert subprocess.run([alone, "--no-server", "--", "true"], check=False).returncode == 0


def test_the_page_joins_a_running_sandbox():
    with sandbox("--name", f"page-{os.getpid()}", "--page") as first:
        first.run("true")
        with sandbox("--join", f"page-{os.getpid()}", "--page") as second:
            assert first.address != second.address
            events = second.events()
            first.say("$KIVCTL stop --type 5")
            assert next(event for event in events if event.get("arguments") == "(5,)")


def test_a_command_that_fails_fails_with_its_page():
    done = subprocess.run([PROGRAM, "--page", "--", "sh", "-c", "echo said >&2; exit 7"], capture_output=True, encoding="utf-8", check=False)
    assert done.returncode == 7
    assert "said\n" in done.stderr


RECORDING = """\
{"ms": 0, "call": 1, "method": "check_dbus_connection", "arguments": "(7,)"}
{"ms": 1, "answer": 1, "values": "('tv_7',)"}
{"ms": 2, "call": 2, "method": "StartNetworkSpeaker", "arguments": "(80, [byte 0x02, 0x4b], 1)"}
{"ms": 5, "answer": 2, "error": "org.example.Broken", "message": "no <b>markup</b>"}
{"ms": 6, "event": 3, "client": "tv_7", "method": "nam_notify_subscriber", "arguments": "([byte 0x28, 0x00, 0x02, 0x02, 0x04, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00],)"}
{"ms": 7, "answer": 3, "values": "()"}
"""


def test_a_recording_is_shown(tmp_path):
    file = tmp_path / "morning.jsonl"
    file.write_text(RECORDING, encoding="utf-8")
    with sandbox("--show", str(file), command=()) as page:
        events = page.events()
        assert next(events)["about"]["recording"] == "morning.jsonl"
        assert [next(events)["ms"] for _ in range(6)] == [0, 1, 2, 5, 6, 7]
        assert page.ask("control", "POST", '["atmos", "on"]').status == 404


@pytest.mark.parametrize("text", ["nonsense\n", "[1]\n", '{"ms": 1, "call": 1}\n', '{"ms": 1, "answer": 1, "values": 7}\n'])
def test_a_file_that_is_not_a_recording_is_told(tmp_path, text):
    file = tmp_path / "other.jsonl"
    file.write_text(RECORDING + text, encoding="utf-8")
    done = subprocess.run([PROGRAM, "--show", str(file)], capture_output=True, encoding="utf-8", check=False)
    assert done.returncode == 125
    assert f"kiv-sandbox: {file}:7:" in done.stderr


def captured(file, *fields):
    columns = [word for field in fields for word in ("-e", field)]
    done = subprocess.run(["tshark", "-r", file, "-T", "fields", "-E", "separator=|", *columns], capture_output=True, encoding="utf-8", check=True)
    return [line.split("|") for line in done.stdout.splitlines()]


def test_a_capture_is_read_by_others(tmp_path):
    recording = tmp_path / "morning.jsonl"
    recording.write_text(RECORDING, encoding="utf-8")
    file = tmp_path / "messages.pcap"
    with sandbox("--show", str(recording), command=()) as page:
        file.write_bytes(page.ask("messages.pcap").read())
    kind = subprocess.run(["capinfos", "-E", file], capture_output=True, encoding="utf-8", check=True).stdout
    assert "D-Bus" in kind
    lines = captured(file, "_ws.col.Protocol", "dbus.message_type", "dbus.member", "dbus.error_name", "_ws.malformed")
    assert [line[0] for line in lines] == ["D-Bus"] * 6
    assert [line[2] for line in lines if line[2]] == ["check_dbus_connection", "StartNetworkSpeaker", "nam_notify_subscriber"]
    assert lines[3][3] == "org.example.Broken"
    assert {line[4] for line in lines} == {""}


def test_a_capture_leaves_out_what_no_bus_could_carry(tmp_path):
    recording = tmp_path / "odd.jsonl"
    recording.write_text(
        RECORDING + '{"ms": 8, "call": 8, "method": "no name", "arguments": "()"}\n'
        '{"ms": 8, "event": 9, "client": "no/id", "method": "nam_notify_subscriber", "arguments": "()"}\n'
        '{"ms": 8, "call": 10, "method": "Odd", "arguments": "(no values"}\n'
        '{"ms": 9, "answer": 10, "error": "no name", "message": ""}\n', encoding="utf-8")
    file = tmp_path / "messages.pcap"
    with sandbox("--show", str(recording), command=()) as page:
        file.write_bytes(page.ask("messages.pcap").read())
    lines = captured(file, "dbus.member", "dbus.error_name", "_ws.malformed")
    assert [line[0] for line in lines if line[0]] == ["check_dbus_connection", "StartNetworkSpeaker", "nam_notify_subscriber", "Odd"]
    assert len(lines) == 8 and {line[2] for line in lines} == {""}


def test_a_capture_of_a_live_page_has_the_messages_of_the_bus(tmp_path):
    file = tmp_path / "messages.pcap"
    with sandbox("--page") as page:
        events = page.events()
        page.say("$KIVCTL stop --type 3")
        call = next(event for event in events if event.get("method") == "StopNetworkSpeaker")
        next(event for event in events if event.get("answer") == call["call"])
        file.write_bytes(page.ask("messages.pcap").read())
    lines = captured(file, "dbus.member", "dbus.sender", "dbus.serial", "_ws.malformed")
    assert [call["sender"], str(call["serial"])] in [line[1:3] for line in lines if line[0] == "StopNetworkSpeaker"]
    assert {line[3] for line in lines} == {""}


def test_a_bus_that_is_just_ending_is_started_again():
    with sandbox("--page") as page:
        states = (event["bus"] for event in page.events() if "bus" in event)
        assert next(states) == "up"
        for _ in range(5):
            page.say("$KIV_SANDBOX control bus-fault gone &")
            assert next(states) == "down"
            assert page.run("$KIV_SANDBOX control bus-fault none 2>&1; wait") == ""
            assert next(states) == "up"
