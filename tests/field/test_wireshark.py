#!/usr/bin/python3
"""The Wireshark dissector (tools/wireshark/zanth.lua) under the real tshark.

Each class is one CTest test (field.wireshark.<Class>):

  Registered   the protocol, its fields and its port preference exist at all
  Codes        every code of the library's code list is named and classed as the library does
  Captures     the committed captures decode to the fields the simulated controllers sent
  Reassembly   frames cut across segments and sharing segments decode to the frames that an
               independent reading of the same TCP streams finds
  Malformed    what the simulator never sends: bad headers, impossible lengths, junk, unknown
               codes; each is marked, the frames after it still decode, and nothing throws
  Random       long random streams of frames, pieces of frames and junk: nothing throws
  Live         a capture made now by zanth-captures and zanth-sim --pcap on a free port decodes
               with the port set in the dissector's preference, and not without it

tshark runs Lua scripts only for unprivileged users in some builds: when this runs as root,
tshark is run as nobody, on readable copies of the script and the captures.
"""

import os
import pathlib
import pwd
import random
import re
import shutil
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import unittest
import xml.etree.ElementTree as ET

SOURCE = pathlib.Path(os.environ.get("ZANTH_SOURCE_DIR", pathlib.Path(__file__).resolve().parents[2]))
BIN = pathlib.Path(os.environ.get("ZANTH_TEST_BIN", SOURCE / "build" / "asan" / "bin"))
LUA = SOURCE / "tools" / "wireshark" / "zanth.lua"
CAPTURES = SOURCE / "tools" / "wireshark" / "captures"
CODE_LIST = SOURCE / "protocol" / "CodeList.h"

TSHARK = shutil.which("tshark")


class Tshark:
    """tshark with the dissector, in a scratch folder of its own (removed by close)."""

    def __init__(self):
        if TSHARK is None:
            raise AssertionError("tshark is not installed: bash scripts/setup.sh --field")
        self.dir = pathlib.Path(tempfile.mkdtemp(prefix="zanth-tshark-"))
        self.home = self.dir / "home"
        self.home.mkdir()
        self.lua = self.copy(LUA)
        self.as_nobody = os.geteuid() == 0
        if self.as_nobody:
            nobody = pwd.getpwnam("nobody")
            self.user = (nobody.pw_uid, nobody.pw_gid)
            os.chmod(self.dir, 0o755)
            os.chown(self.home, *self.user)

    def copy(self, path):
        target = self.dir / pathlib.Path(path).name
        if pathlib.Path(path).resolve() != target.resolve():
            shutil.copyfile(path, target)
        os.chmod(target, 0o644)
        return target

    def run(self, args, check=True):
        command = [TSHARK, "-n", "-X", f"lua_script:{self.lua}"] + args
        if args and args[0] == "-G":
            # -G must come first.
            command = [TSHARK, args[0], args[1], "-X", f"lua_script:{self.lua}"] + args[2:]
        if self.as_nobody:
            uid, gid = self.user
            command = ["setpriv", f"--reuid={uid}", f"--regid={gid}", "--clear-groups", "--"] + command
        env = dict(os.environ, HOME=str(self.home), XDG_CONFIG_HOME=str(self.home / ".config"),
                   LC_ALL="C.UTF-8")
        done = subprocess.run(command, cwd=self.dir, env=env, capture_output=True, text=True,
                              errors="replace", timeout=120)
        if check and done.returncode != 0:
            raise AssertionError(f"{' '.join(command)} exited {done.returncode}:\n{done.stderr}")
        return done

    def pdus(self, capture, prefs=()):
        """Every ZANTH item of the capture, in order: the packet it is in, its ports, and its
        fields (name -> list of shown values), expert infos included."""
        args = ["-r", str(self.copy(capture)), "-T", "pdml"]
        for pref in prefs:
            args += ["-o", pref]
        done = self.run(args)
        root = ET.fromstring(done.stdout)
        out = []
        for number, packet in enumerate(root.iter("packet"), 1):
            tcp = {f.get("name"): f.get("show") for f in packet.iter("field")
                   if f.get("name", "").startswith("tcp.")}
            every = [f.get("name") for f in packet.iter("field")]
            if "_ws.lua.error" in every or "_ws.malformed" in every:
                raise AssertionError(f"packet {number}: the dissector threw:\n"
                                     + ET.tostring(packet, encoding="unicode")[:4000])
            for proto in packet.iter("proto"):
                if proto.get("name") != "zanth":
                    continue
                fields = {}
                for f in proto.iter("field"):
                    name = f.get("name")
                    if not name:
                        continue
                    fields.setdefault(name, []).append(f.get("show"))
                out.append({"packet": number, "src": int(tcp.get("tcp.srcport", 0)),
                            "dst": int(tcp.get("tcp.dstport", 0)), "text": proto.get("showname"),
                            "segments": int(tcp.get("tcp.segment.count", "1")), "f": fields})
        return out

    def close(self):
        shutil.rmtree(self.dir, ignore_errors=True)


def one(pdu, name):
    values = pdu["f"].get(name, [])
    assert len(values) == 1, f"{name} in {pdu['text']}: {values}"
    return values[0]


def codes(pdus):
    return [int(one(p, "zanth.code")) for p in pdus if "zanth.code" in p["f"]]


def experts(pdu):
    return set(k for k in pdu["f"] if k.startswith("zanth.expert."))


def library_codes():
    rows = re.findall(r'^ZANTH_CODE\((\d+), (\w+), "(.*)"\)$', CODE_LIST.read_text(), re.M)
    return [(int(n), c, t) for n, c, t in rows]


def frame(code, payload=""):
    """A clear frame, its length counted."""
    return f"{code:04d};{len(payload) + 10:04d};{payload}"


def craft(tshark, name, port, *segments):
    """A capture of one stream from the given segments ("c:..." controller, "h:..." host)."""
    path = tshark.dir / name
    subprocess.run([str(BIN / "zanth-pcap-craft"), str(path), str(port), *segments], check=True,
                   timeout=30)
    return path


class TsharkTest(unittest.TestCase):
    def setUp(self):
        self.tshark = Tshark()
        self.addCleanup(self.tshark.close)
        # A dissector that fails to load fails every test here.
        done = self.tshark.run(["-G", "protocols"])
        registered = [line.split("\t") for line in done.stdout.splitlines()]
        if ["Zanth controller protocol", "ZANTH", "zanth"] not in registered:
            lua = [line for line in done.stdout.splitlines() if "Lua" in line]
            self.fail("the zanth protocol is not registered:\n" + done.stderr + "\n".join(lua))


class Registered(TsharkTest):
    def test_fields_and_port_preference_exist(self):
        fields = self.tshark.run(["-G", "fields"]).stdout
        for name in ("zanth.code", "zanth.length", "zanth.name", "zanth.class", "zanth.mac",
                     "zanth.card.unique_id", "zanth.chunk_size", "zanth.cipher_length"):
            self.assertRegex(fields, rf"\t{re.escape(name)}\t", name)
        prefs = self.tshark.run(["-G", "defaultprefs"]).stdout
        self.assertIn("#zanth.ports: 3001", prefs)


class Codes(TsharkTest):
    def test_every_code_is_named_and_classed_as_the_library_does(self):
        rows = library_codes()
        self.assertGreater(len(rows), 200)
        # One frame per code, each in a segment of its own; 125 is sent without a name row. 1043
        # comes last, as everything after it on a link is encrypted.
        rows = [r for r in rows if r[0] != 1043] + [r for r in rows if r[0] == 1043]
        segments = [f"c:{frame(code)}" for code, _, _ in rows[:-1]] + [f"h:{frame(125)}",
                                                                       f"c:{frame(1043)}"]
        pdus = self.tshark.pdus(craft(self.tshark, "codes.pcap", 3001, *segments))
        self.assertEqual(len(pdus), len(rows) + 1)
        pdus = pdus[:-2] + pdus[-1:] + pdus[-2:-1]
        for pdu, (code, constant, text) in zip(pdus, rows):
            self.assertEqual(int(one(pdu, "zanth.code")), code)
            self.assertEqual(one(pdu, "zanth.name"), text)
            self.assertEqual(one(pdu, "zanth.constant"), constant)
            klass = one(pdu, "zanth.class")
            if code in (9980, 9990):
                self.assertEqual(klass, "either side")
            elif code < 1000:
                expected = "reply" if "_RSP" in text or code in (70, 71) else "command"
                self.assertEqual(klass, expected, text)
            elif "_RSP" in text or code in (9910, 9920, 1033, 1034):
                self.assertEqual(klass, "reply", text)
            else:
                self.assertEqual(klass, "unsolicited", text)
        # The names stand as the library has them, blanks and all.
        by_code = {int(one(p, "zanth.code")): p for p in pdus}
        self.assertEqual(one(by_code[1009], "zanth.name"), "ZANTH_REBOOT_INTERFACE_RSP  deprecated")
        self.assertEqual(one(by_code[1116], "zanth.name"), "CONTACT_ID_RESPONSE_RSP")
        last = pdus[-1]
        self.assertEqual(one(last, "zanth.name"), "TOTALLY UNKNOWN CODE (125)")
        self.assertEqual(one(last, "zanth.constant"), "ZANTH_UPDATE_SCHEDULE")
        self.assertEqual(one(last, "zanth.class"), "command")


class Captures(TsharkTest):
    def decode(self, name):
        pdus = self.tshark.pdus(CAPTURES / f"{name}.pcap")
        self.assertGreater(len(pdus), 2, name)
        # Every capture starts with the controller's identification and the host's acceptance,
        # and nothing in it is malformed.
        for pdu in pdus:
            self.assertFalse(experts(pdu) & {"zanth.expert.bad_header", "zanth.expert.bad_length",
                                             "zanth.expert.skipped", "zanth.expert.not_number"},
                             pdu["text"])
        return pdus

    def by_code(self, pdus, code):
        found = [p for p in pdus if p["f"].get("zanth.code") == [str(code)]]
        self.assertTrue(found, f"no {code}")
        return found

    def test_events_heartbeats_and_bundles(self):
        pdus = self.decode("events")
        self.assertEqual(codes(pdus)[:2], [1042, 70])
        ident = pdus[0]
        self.assertEqual(one(ident, "zanth.identity"), "02:5A:37:E0:A0:01")
        self.assertEqual(one(ident, "zanth.mac"), "E0:A0:01")
        self.assertEqual(one(ident, "zanth.class"), "unsolicited")
        self.assertEqual(one(ident, "zanth.from"), "controller")
        info = self.by_code(pdus, 1079)[0]
        self.assertEqual(one(info, "zanth.model"), "ZN-4000")
        self.assertEqual(one(info, "zanth.firmware"), "4.21.7")
        self.assertEqual(one(info, "zanth.mac"), "E0:A0:01")
        self.assertRegex(one(info, "zanth.serial"), r"\S")
        bundle = self.by_code(pdus, 1065)[0]
        self.assertEqual(bundle["f"]["zanth.bundle.code"], ["1061", "1061", "1061"])
        self.assertEqual(bundle["f"]["zanth.msgid"], ["1", "2", "3"])
        self.assertEqual(len(bundle["f"]["zanth.description"]), 3)
        for event in self.by_code(pdus, 1061) + self.by_code(pdus, 1060):
            self.assertRegex(one(event, "zanth.date"), r"^\d\d/\d\d/\d{4}$")
            self.assertRegex(one(event, "zanth.time"), r"^\d\d:\d\d:\d\d$")
            self.assertGreaterEqual(int(one(event, "zanth.door")), 1)
            self.assertRegex(one(event, "zanth.description"), r"\S")
        beat = self.by_code(pdus, 1069)[0]
        self.assertEqual(one(beat, "zanth.mac"), "E0:A0:01")
        self.assertEqual(one(beat, "zanth.text"), "HEARTBEAT")
        # The host acknowledges each message: a 67 or a 69 follows every event, alarm, bundle
        # and heartbeat from the controller.
        sequence = codes(pdus)
        for i, code in enumerate(sequence):
            if code in (1060, 1061, 1065, 1069):
                self.assertIn(67 if code != 1069 else 69, sequence[i + 1:i + 3], sequence)
        self.assertEqual(one(self.by_code(pdus, 67)[0], "zanth.class"), "reply")
        self.assertEqual(one(self.by_code(pdus, 67)[0], "zanth.from"), "host")

    def test_lookups_and_decisions(self):
        pdus = self.decode("access")
        lookups = self.by_code(pdus, 1073)
        self.assertEqual(one(lookups[0], "zanth.mac"), "E0:A0:02")
        self.assertEqual(one(lookups[0], "zanth.card"), "1001")
        self.assertEqual(one(lookups[0], "zanth.door"), "1")
        decisions = {one(p, "zanth.card"): one(p, "zanth.decision") for p in self.by_code(pdus, 75)}
        self.assertEqual(decisions, {"1001": "1", "2001": "0", "3003": "0", "4242": "1"})
        outcomes = {one(p, "zanth.card"): one(p, "zanth.outcome") for p in self.by_code(pdus, 1093)}
        self.assertEqual(outcomes, {"1001": "GRANTED", "2001": "DENIED", "3003": "DENIED",
                                    "4242": "GRANTED"})
        self.assertEqual([one(p, "zanth.result") for p in self.by_code(pdus, 1075)], ["0"] * 4)
        # Every look-up is acknowledged with "0;" at once; the last one may have come just as
        # the capture ended.
        acks = self.by_code(pdus, 73)
        self.assertIn(len(acks), (len(lookups), len(lookups) - 1))
        self.assertEqual({one(a, "zanth.result") for a in acks}, {"0"})
        request = self.by_code(pdus, 100)[0]
        self.assertEqual((one(request, "zanth.door"), one(request, "zanth.seconds"),
                          one(request, "zanth.digits")), ("2", "10", "4"))
        report = self.by_code(pdus, 1101)[0]
        self.assertEqual((one(report, "zanth.door"), one(report, "zanth.pin")), ("2", "1234"))

    def test_card_records(self):
        pdus = self.decode("cards")
        first = self.by_code(pdus, 21)[0]
        self.assertEqual(one(first, "zanth.card"), "1001")
        self.assertEqual(one(first, "zanth.pin"), "4711")
        self.assertEqual(one(first, "zanth.card.unique_id"), "9001")
        self.assertEqual(first["f"]["zanth.card.access_group"], ["1", "2", "0", "0", "0", "0", "0", "0"])
        self.assertEqual(one(first, "zanth.card.start"), "2024/01/01-00:00:00")
        self.assertEqual(one(first, "zanth.card.end"), "2030/12/31-23:59:59")
        third = self.by_code(pdus, 27)[0]
        self.assertEqual((one(third, "zanth.card.pin_exempt"), one(third, "zanth.card.role")), ("1", "12"))
        self.assertEqual(one(third, "zanth.card.escort_id"), "9001")
        reads = self.by_code(pdus, 1035)
        self.assertEqual(one(reads[0], "zanth.result"), "0")
        self.assertEqual(one(reads[0], "zanth.card.unique_id"), "9002")
        self.assertEqual(one(reads[0], "zanth.card.role"), "12")
        self.assertEqual(one(reads[0], "zanth.card.start"), "2024/06/01-07:30:00")
        # The second read finds the record deleted: a negative result and no record.
        self.assertLess(int(one(reads[1], "zanth.result")), 0)
        self.assertNotIn("zanth.card.unique_id", reads[1]["f"])
        self.assertEqual(one(self.by_code(pdus, 104)[0], "zanth.card.unique_id"), "9002")
        counts = self.by_code(pdus, 1089)[0]
        self.assertEqual((one(counts, "zanth.result"), one(counts, "zanth.count")), ("0", "2"))

    def test_device_commands(self):
        pdus = self.decode("device")
        on, off = self.by_code(pdus, 94)
        self.assertEqual([one(on, k) for k in ("zanth.target", "zanth.output", "zanth.state")],
                         ["32", "0", "1"])
        self.assertEqual(one(off, "zanth.state"), "0")
        status = self.by_code(pdus, 1095)[0]
        self.assertEqual(len(one(status, "zanth.input_states")), 16)
        clock = self.by_code(pdus, 18)[0]
        self.assertEqual([one(clock, f"zanth.{k}") for k in ("month", "day", "year", "hour")],
                         ["6", "1", "2024", "12"])
        self.assertEqual(one(self.by_code(pdus, 1019)[0], "zanth.result"), "0")

    def test_file_chunks_and_their_sizes(self):
        pdus = self.decode("files")
        self.assertEqual(one(self.by_code(pdus, 30)[0], "zanth.path"), "/etc/doors/schedule.txt")
        sent = [(c, one(p, "zanth.chunk_size"), one(p, "zanth.chunk_last"))
                for c in (31, 32) for p in self.by_code(pdus, c)]
        self.assertEqual(sent, [(31, "4086", "0"), (32, "914", "1")])
        fetched = [int(one(p, "zanth.chunk_size")) for c in (1033, 1034) for p in self.by_code(pdus, c)]
        self.assertEqual(fetched, [4086, 914])
        self.assertEqual(one(self.by_code(pdus, 1033)[0], "zanth.class"), "reply")
        self.assertEqual(one(self.by_code(pdus, 1028)[0], "zanth.permission"), "644")
        # A chunk of 4150 bytes on the wire spans no segment boundary of its own here, but its
        # bytes are the file's: the first chunk starts with the file's first line.
        chunk = self.by_code(pdus, 31)[0]["f"]["zanth.chunk"][0]
        self.assertTrue(bytes.fromhex(chunk.replace(":", ""))[:40].startswith(b"door 01 opens"))

    def test_encrypted_link(self):
        pdus = self.decode("encrypted")
        ident = pdus[0]
        self.assertEqual(int(one(ident, "zanth.code")), 1043)
        self.assertEqual(one(ident, "zanth.mac"), "E0:A0:06")
        self.assertEqual(one(ident, "zanth.encrypted"), "0")
        rest = pdus[1:]
        self.assertGreaterEqual(len(rest), 5)
        sides = set()
        for pdu in rest:
            self.assertEqual(one(pdu, "zanth.encrypted"), "1", pdu["text"])
            self.assertNotIn("zanth.code", pdu["f"])
            self.assertEqual(int(one(pdu, "zanth.cipher_length")) + 5, int(one(pdu, "zanth.length")))
            self.assertIn("zanth.expert.encrypted", experts(pdu))
            sides.add(one(pdu, "zanth.from"))
        self.assertEqual(sides, {"host", "controller"})
        # The acceptance is the first encrypted frame: from the host, a 10-byte frame sealed.
        self.assertEqual(one(rest[0], "zanth.from"), "host")
        self.assertEqual(int(one(rest[0], "zanth.length")), 10 + 45)


def streams_of(path):
    """The TCP payload of each direction of a classic pcap, read without tshark."""
    data = pathlib.Path(path).read_bytes()
    magic, = struct.unpack_from("<I", data, 0)
    assert magic == 0xA1B2C3D4, hex(magic)
    at = 24
    out = {}
    while at + 16 <= len(data):
        _, _, length, _ = struct.unpack_from("<IIII", data, at)
        packet = data[at + 16:at + 16 + length]
        at += 16 + length
        ihl = (packet[14] & 0x0F) * 4
        tcp = 14 + ihl
        sport, dport = struct.unpack_from("!HH", packet, tcp)
        offset = (packet[tcp + 12] >> 4) * 4
        payload = packet[tcp + offset:]
        if payload:
            out.setdefault((sport, dport), bytearray()).extend(payload)
    return out


def clear_frames(stream):
    codes_found = []
    at = 0
    while at + 10 <= len(stream):
        code, length = int(stream[at:at + 4]), int(stream[at + 5:at + 9])
        codes_found.append(code)
        at += length
    assert at == len(stream), (at, len(stream))
    return codes_found


class Reassembly(TsharkTest):
    def check(self, path, prefs=()):
        pdus = self.tshark.pdus(path, prefs)
        wire = streams_of(path)
        self.assertEqual(len(wire), 2)
        for (sport, dport), stream in wire.items():
            decoded = [int(one(p, "zanth.code")) for p in pdus if p["src"] == sport]
            self.assertEqual(decoded, clear_frames(stream), f"from port {sport}")
        return pdus

    def test_split_and_merged_frames_decode_as_written(self):
        pdus = self.check(CAPTURES / "reassembly.pcap")
        per_packet = {}
        for p in pdus:
            per_packet.setdefault(p["packet"], []).append(p)
        self.assertTrue(any(len(v) >= 2 for v in per_packet.values()),
                        "no segment holds two frames")
        self.assertTrue(any(p["segments"] >= 3 for p in pdus), "no frame spans three segments")
        # Every frame whole: its length field and its own size agree, its payload too.
        for p in pdus:
            self.assertEqual(int(one(p, "zanth.payload_length")) + 10, int(one(p, "zanth.length")))

    def test_without_reassembly_nothing_throws(self):
        # With TCP's reassembly off the frames that span segments show as starts of frames.
        done = self.tshark.run(["-r", str(self.tshark.copy(CAPTURES / "reassembly.pcap")),
                                "-o", "tcp.desegment_tcp_streams:FALSE", "-T", "pdml"])
        self.assertNotIn("_ws.lua.error", done.stdout)
        self.assertIn("zanth.expert.partial", done.stdout)


class Malformed(TsharkTest):
    def test_bad_headers_are_marked_and_the_next_frame_decodes(self):
        path = craft(self.tshark, "bad.pcap", 3001,
                     "c:" + frame(1042, "02:5A:37:C0:FF:EE;1.0;"),
                     # a letter in the code, then a good frame in the same segment
                     "h:007A;0010;0079;0010;",
                     # a length below the header's own, then a good frame
                     "c:1079;0009;" + frame(1079, "a;b;"),
                     # junk alone in a segment, a good frame in the next
                     "h:hello, controller",
                     "h:0089;0010;",
                     # a length field with a letter in it, then junk that looks like nothing
                     "c:1089;00x0;0;1;2;",
                     "c:" + frame(1089, "0;2;9;"),
                     # a header cut after three bytes, its rest in the next segment
                     "h:007", "h:9;0010;",
                     # a code the list doesn't have, a frame too long for the library
                     "c:" + frame(1234, "abc;"),
                     "h:" + frame(93, "x" * 4190),
                     # an empty field, a field that should be a number and isn't, no last ';'
                     "h:" + frame(75, "1;;0;"),
                     "c:" + frame(1061, "C0:FF:EE;x;01/02/2024;12"),
                     "h:0067;0010;")
        pdus = self.tshark.pdus(path)
        sequence = [(int(p["f"]["zanth.code"][0]) if "zanth.code" in p["f"] else None, experts(p))
                    for p in pdus]
        good = [c for c, e in sequence if c is not None and not e & {"zanth.expert.bad_length"}]
        self.assertEqual(good, [1042, 79, 1079, 89, 1089, 79, 1234, 93, 75, 1061, 67])
        marks = [e for c, e in sequence]
        self.assertIn({"zanth.expert.bad_header", "zanth.expert.skipped"}, marks)
        bad_length = [p for p in pdus if "zanth.expert.bad_length" in experts(p)]
        self.assertEqual([one(p, "zanth.length") for p in bad_length], ["9"])
        skipped = [p for p in pdus if "zanth.expert.skipped" in experts(p)]
        # "007A;0010;", the junk segment and "1089;00x0;0;1;2;"
        self.assertEqual(len(skipped), 3, [p["text"] for p in skipped])
        unknown = [p for p in pdus if p["f"].get("zanth.code") == ["1234"]][0]
        self.assertEqual(one(unknown, "zanth.name"), "TOTALLY UNKNOWN CODE (1234)")
        self.assertIn("zanth.expert.unknown_code", experts(unknown))
        self.assertNotIn("zanth.class", unknown["f"])
        long = [p for p in pdus if p["f"].get("zanth.code") == ["93"]][0]
        self.assertIn("zanth.expert.too_long", experts(long))
        recheck = [p for p in pdus if p["f"].get("zanth.code") == ["75"]][0]
        self.assertIn("zanth.expert.empty_field", experts(recheck))
        self.assertEqual(one(recheck, "zanth.decision"), "0")
        event = [p for p in pdus if p["f"].get("zanth.code") == ["1061"]][0]
        self.assertIn("zanth.expert.not_number", experts(event))
        self.assertIn("zanth.expert.unterminated", experts(event))
        self.assertEqual(one(event, "zanth.date"), "01/02/2024")

    def test_encrypted_link_headers(self):
        sealed = "\\x8f" * 50
        path = craft(self.tshark, "enc.pcap", 3001,
                     "c:" + frame(1043, "02:5A:37:C0:FF:EE;1.0;"),
                     "h:0055;" + sealed,
                     # no length prefix, then a sound frame in the same segment
                     "c:ab;cd0055;" + sealed,
                     # a length that leaves no cipher text
                     "h:0005;",
                     "h:0055;" + sealed)
        pdus = self.tshark.pdus(path)
        self.assertEqual(int(one(pdus[0], "zanth.code")), 1043)
        sealed_pdus = [p for p in pdus[1:] if "zanth.cipher_length" in p["f"]]
        self.assertEqual([one(p, "zanth.cipher_length") for p in sealed_pdus], ["50", "50", "50"])
        self.assertTrue(all(one(p, "zanth.encrypted") == "1" for p in sealed_pdus))
        self.assertEqual(sum("zanth.expert.skipped" in experts(p) for p in pdus), 1)
        self.assertEqual(sum("zanth.expert.bad_length" in experts(p) for p in pdus), 1)

    def test_link_whose_identification_was_not_captured(self):
        # A capture started mid-link: length prefixes and cipher text are taken as encrypted.
        path = craft(self.tshark, "mid.pcap", 3001, "h:0055;" + "\\x8f" * 50, "c:0060;" + "\\x11" * 55)
        pdus = self.tshark.pdus(path)
        self.assertEqual([one(p, "zanth.cipher_length") for p in pdus], ["50", "55"])


def escaped(data):
    """Bytes as zanth-pcap-craft takes them."""
    return "".join(chr(b) if 32 <= b < 127 and b != 92 else f"\\x{b:02x}" for b in data)


class Random(TsharkTest):
    """Streams of good frames, frames cut anywhere, and bytes heavy in digits and ';': the
    dissector marks what it can't read and never throws, with reassembly on and off."""

    def stream(self, seed, encrypted_after=None):
        rng = random.Random(seed)
        known = [code for code, _, _ in library_codes() if code != 1043]
        alphabet = b"0123456789;;;;^-/:#aZ \x00\xff"
        pending = {"c": b"", "h": b""}
        segments = []
        for i in range(400):
            side = rng.choice("ch")
            roll = rng.random()
            if encrypted_after is not None and i == encrypted_after:
                data = frame(1043, "02:5A:37:C0:FF:EE;1.0;").encode()
                side = "c"
            elif roll < 0.45:
                payload = bytes(rng.choice(alphabet) for _ in range(rng.randrange(0, 60)))
                data = f"{rng.choice(known):04d};{len(payload) + 10:04d};".encode() + payload
            elif roll < 0.6:
                data = f"{rng.randrange(10000):04d};".encode() + bytes(
                    rng.choice(alphabet) for _ in range(rng.randrange(0, 30)))
            else:
                data = bytes(rng.choice(alphabet) for _ in range(rng.randrange(1, 40)))
            data = pending[side] + data
            cut = rng.randrange(1, len(data) + 1) if rng.random() < 0.3 else len(data)
            pending[side] = data[cut:]
            segments.append(f"{side}:{escaped(data[:cut])}")
        return craft(self.tshark, f"random-{seed}.pcap", 3001, *segments)

    def test_clear_link(self):
        path = self.stream(7)
        self.assertGreater(len(self.tshark.pdus(path)), 150)
        self.tshark.pdus(path, ["tcp.desegment_tcp_streams:FALSE"])

    def test_encrypted_link(self):
        path = self.stream(11, encrypted_after=50)
        pdus = self.tshark.pdus(path)
        self.assertTrue(any("zanth.cipher_length" in p["f"] for p in pdus))
        self.tshark.pdus(path, ["tcp.desegment_tcp_streams:FALSE"])


class Live(TsharkTest):
    def test_capture_made_now_decodes_on_the_port_set_in_the_preferences(self):
        work = pathlib.Path(tempfile.mkdtemp(prefix="zanth-captures-"))
        self.addCleanup(shutil.rmtree, work, True)
        port = 3001
        while port == 3001:
            with socket.socket() as s:
                s.bind(("127.0.0.1", 0))
                port = s.getsockname()[1]
        env = dict(os.environ, HOME=str(work), XDG_CONFIG_HOME=str(work / ".config"))
        plugins = os.environ.get("ZANTH_PLUGIN_DIR")
        if plugins:
            env["LD_LIBRARY_PATH"] = plugins
        # A group of its own, so that a run that hangs is stopped with its simulator.
        host = subprocess.Popen([str(BIN / "zanth-captures"), "--sim", str(BIN / "zanth-sim"),
                                 "--out", str(work / "out"), "--port", str(port),
                                 "--only", "events,reassembly"],
                                cwd=work, env=env, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                text=True, start_new_session=True)
        try:
            output, _ = host.communicate(timeout=150)
        finally:
            if host.poll() is None:
                os.killpg(host.pid, signal.SIGKILL)
                host.wait()
        sys.stdout.write(output)
        self.assertEqual(host.returncode, 0, output)
        frames = {name: int(count) for name, count in
                  re.findall(r"capture: \S+/(\w+)\.pcap, \d+ links, (\d+) frames", output)}
        self.assertEqual(set(frames), {"events", "reassembly"})

        for name, count in frames.items():
            path = work / "out" / f"{name}.pcap"
            self.assertEqual(self.tshark.pdus(path), [], "decoded on the default port")
            pdus = self.tshark.pdus(path, [f"zanth.ports:1-2,{port}"])
            self.assertEqual(len(pdus), count, name)
            self.assertEqual(codes(pdus)[:2], [1042, 70])
        Reassembly.check(self, work / "out" / "reassembly.pcap", [f"zanth.ports:{port}"])


if __name__ == "__main__":
    unittest.main()
