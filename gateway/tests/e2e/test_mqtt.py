"""zanthd on a message bus, end to end against Debian's mosquitto and zanth-sim: the journal
published in order and at least once (through a broker restart and a kill -9 of zanthd), commands
and their answers, repeats, refusals and HMACs, TLS with passwords and the shipped ACL example,
and door decisions over the bus."""
import json
import os
import time
import uuid

from bus import Broker, Client, connack, journal_messages, make_certificates, sign
from conftest import counts, wait_for

import pytest

PREFIX = "zanth/site"
REPO = os.path.join(os.path.dirname(__file__), "../../..")


@pytest.fixture
def bus(site):
    """Brokers and clients that are always stopped (before zanthd and the simulators)."""
    made = []

    class Bus:
        def broker(self, **kw):
            b = Broker(site.dir, name=f"broker{len(made)}", **kw)
            made.append(b)
            return b

        def client(self, broker, **kw):
            c = Client(broker, **kw)
            made.append(c)
            return c

    yield Bus()
    for thing in reversed(made):
        thing.cleanup()


def mqtt_config(broker, extra=""):
    return f"[mqtt]\nenabled = true\nport = {broker.port}\nmark_interval_ms = 50\nreconnect_max_s = 1\n{extra}"


def last_id(g):
    return g.get("/events", params={"limit": 1}).json()["last_id"]


def wait_disconnects(g, n):
    """After the simulator stopped: the controllers gone and their n disconnects journaled (the
    library gives them one at a time), so that the journal's last id stands still."""
    g.connected(0)
    wait_for(lambda: len(g.records(kind="disconnect")) >= n, 30, f"{n} disconnects journaled")


def wait_published(g, subscriber, timeout=60):
    """Waits until the broker has every record the journal holds and the subscriber has them
    all; returns {id: [(topic, record)]}."""
    wait_for(lambda: g.metric("zanthd_mqtt_backlog_records") == 0 and g.lag() == 0, timeout, "the backlog to drain")
    last = last_id(g)
    return wait_for(lambda: (lambda got: set(range(1, last + 1)) <= set(got) and got)(journal_messages(subscriber, PREFIX)),
                    timeout, f"ids 1 to {last} at the subscriber")


def event_keys(by_id):
    return [(r["mac"], r["fields"]["msg_id"]) for recs in by_id.values() for _, r in recs[:1] if r["type"] == "event"]


def test_every_record_reaches_a_subscriber_in_journal_order(site, bus):
    broker = bus.broker().start()
    sub = bus.client(broker, subscribe=[f"{PREFIX}/#"]).connect()
    g = site.gateway(extra=mqtt_config(broker)).start()
    sim = site.sim(g.port, "--count", "3", "--flat-out")
    wait_for(lambda: len(journal_messages(sub, PREFIX)) > 300, 60, "records on the bus")
    summary = sim.stop()
    wait_disconnects(g, 3)
    by_id = wait_published(g, sub)
    ids = sorted(by_id)
    assert ids == list(range(1, ids[-1] + 1)), "a gap in the ids"
    # In journal order: the first copy of each id comes after the first copy of the one before.
    firsts = []
    for topic, payload, _ in sub.taken(PREFIX + "/"):
        if "/event" in topic or ("/status" in topic and "/gateway/" not in topic):
            i = json.loads(payload)["id"]
            if i not in firsts:
                firsts.append(i)
    assert firsts == sorted(firsts)
    # Each record as the journal holds it, on the topic of its kind.
    journal = {r["id"]: r for r in g.records()}
    for i, copies in by_id.items():
        for topic, record in copies:
            j = journal[i]
            assert (record["mac"], record["type"], record["raw"], record["fields"], record["time_ms"]) == \
                   (j["mac"], j["kind"], j["raw"], j["fields"], j["received_ms"])
            kind = "status" if j["kind"] in ("connect", "disconnect") else j["kind"]
            assert topic == f"{PREFIX}/{j['mac'] or 'site'}/{kind}", topic
    acked = counts(summary, "acks:").get(67, 0)
    keys = event_keys(by_id)
    assert len(set(keys)) >= acked > 200
    # The retained statuses: the gateway online, each controller's last connect or disconnect.
    late = bus.client(broker, subscribe=[f"{PREFIX}/+/status", f"{PREFIX}/gateway/status"]).connect()
    wait_for(lambda: len(late.taken()) >= 4, 30, "the retained statuses")
    retained = {t: json.loads(p) for t, p, r in late.taken() if r}
    assert retained[f"{PREFIX}/gateway/status"]["status"] == "online"
    assert {retained[f"{PREFIX}/00:00:0{n}/status"]["type"] for n in (1, 2, 3)} <= {"connect", "disconnect"}
    assert g.metric("zanthd_mqtt_connected") == 1
    assert g.metric("zanthd_mqtt_acked_upto") == last_id(g)
    g.stop()
    # A gateway that stops says so; the journal holds the broker's mark.
    wait_for(lambda: [json.loads(p)["status"] for t, p, _ in sub.taken(f"{PREFIX}/gateway/status")][-1] == "offline",
             30, "the gateway's offline status")


def test_a_broker_restart_and_its_outage_lose_nothing(site, bus):
    broker = bus.broker(persistence=True).start()
    # The subscriber keeps a persistent session: what comes while it is away waits for it.
    sub = bus.client(broker, client_id="ops-restart", clean=False, subscribe=[f"{PREFIX}/#"]).connect()
    g = site.gateway(extra=mqtt_config(broker)).start()
    sim = site.sim(g.port, "--count", "3", "--flat-out")
    wait_for(lambda: len(journal_messages(sub, PREFIX)) > 300, 60, "records on the bus")
    broker.stop()
    wait_for(lambda: g.metric("zanthd_mqtt_connected") == 0, 30, "zanthd to notice the broker gone")
    # The journal goes on taking records meanwhile, and /metrics shows what waits.
    before = last_id(g)
    wait_for(lambda: g.metric("zanthd_mqtt_backlog_records") > 300 and last_id(g) > before + 300, 60,
             "a backlog while the broker is away")
    assert g.get("/healthz").status_code == 200
    broker.start()
    wait_for(lambda: g.metric("zanthd_mqtt_connected") == 1, 30, "zanthd back on the broker")
    wait_for(lambda: len(journal_messages(sub, PREFIX)) > last_id(g) - 10, 60, "the backlog published")
    summary = sim.stop()
    wait_disconnects(g, 3)
    by_id = wait_published(g, sub)
    assert sorted(by_id) == list(range(1, last_id(g) + 1))
    assert len(set(event_keys(by_id))) >= counts(summary, "acks:").get(67, 0)
    print(f"broker restart: {last_id(g)} records, "
          f"{sum(len(c) for c in by_id.values()) - len(by_id)} duplicates at the subscriber")
    g.stop()


def test_kill9_of_zanthd_republishes_from_its_mark(site, bus):
    broker = bus.broker().start()
    sub = bus.client(broker, subscribe=[f"{PREFIX}/#"]).connect()
    g = site.gateway(extra=mqtt_config(broker)).start()
    sim = site.sim(g.port, "--count", "5", "--flat-out")
    wait_for(lambda: len(journal_messages(sub, PREFIX)) > 500, 60, "records on the bus")
    g.kill9()
    # The broker holds the will of a gateway that died.
    wait_for(lambda: [json.loads(p)["status"] for t, p, _ in sub.taken(f"{PREFIX}/gateway/status")][-1] == "offline",
             30, "the gateway's will")
    g.start()
    wait_for(lambda: g.get("/controllers").json()["connected"] == 5, 60, "the controllers back")
    last = last_id(g)
    wait_for(lambda: last_id(g) > last + 300, 60, "more events")
    summary = sim.stop()
    # The controllers' disconnects from the zanthd that was killed were never given.
    wait_disconnects(g, 5)
    by_id = wait_published(g, sub)
    assert sorted(by_id) == list(range(1, last_id(g) + 1)), "a gap in the ids"
    keys = event_keys(by_id)
    lost = counts(summary, "acks:").get(67, 0) - len(set(keys))
    duplicates = sum(len(c) for c in by_id.values()) - len(by_id)
    print(f"kill -9: lost {lost}, {duplicates} records twice at the subscriber")
    # The journal's bound: at most the one event in hand when zanthd died.
    assert lost <= 1, lost
    assert g.metric("zanthd_mqtt_backlog_records") == 0
    g.stop()


class Requester:
    """Sends requests and reads the answers on its reply topic."""

    def __init__(self, bus, broker, name="ops", **kw):
        self.reply_to = f"{PREFIX}/reply/{name}/{uuid.uuid4().hex[:8]}"
        self.client = bus.client(broker, subscribe=[self.reply_to, f"{PREFIX}/gateway/errors"], **kw).connect()

    def send(self, topic, request, raw=None):
        body = raw if raw is not None else json.dumps(dict({"reply_to": self.reply_to}, **request))
        self.client.publish(f"{PREFIX}/{topic}", body)

    def answers(self, id_):
        out = []
        for _, p, _ in self.client.taken(self.reply_to):
            try:
                a = json.loads(p)
            except ValueError:
                continue
            if isinstance(a, dict) and a.get("id") == id_:
                out.append(a)
        return out

    def answer(self, id_, n=1, timeout=30):
        return wait_for(lambda: len(self.answers(id_)) >= n and self.answers(id_), timeout, f"the answer to {id_}")[-1]

    def errors(self):
        return [json.loads(p) for _, p, _ in self.client.taken(f"{PREFIX}/gateway/errors")]

    def call(self, topic, args=None, **kw):
        id_ = uuid.uuid4().hex
        self.send(topic, dict({"id": id_, "args": args or {}}, **kw))
        return self.answer(id_)


def test_commands_round_trip_and_a_repeated_request_runs_once(site, bus):
    broker = bus.broker().start()
    g = site.gateway(extra=mqtt_config(broker)).start()
    sim = site.sim(g.port, "--count", "1")
    g.connected(1)
    ops = Requester(bus, broker)
    a = ops.call("00:00:01/call/GetTimeDate")
    assert (a["status"], a["result"], a["name"], a["ok"], a["mac"]) == (200, 0, "ok", True, "00:00:01"), a
    assert set(a["outputs"]) == {"date", "time"} and a["audit_id"] > 0
    audit = [r for r in g.records(kind="audit") if r["id"] == a["audit_id"]][0]
    assert (audit["actor"], audit["fields"]["via"], audit["fields"]["export"]) == ("mqtt", "mqtt", "GetTimeDate")
    # A local export, on the gateway's own level.
    v = ops.call("gateway/call/GetDLLVersion")
    assert v["ok"] and v["outputs"]
    # "Open the door" three times under one id: the controller gets it once, every copy an answer.
    open_door = {"id": "open-front-1", "args": {"target": 32, "bitOrFunctionCode": 0, "state": 1}}
    ops.send("00:00:01/call/CmdOutputFunction3", open_door)
    ops.send("00:00:01/call/CmdOutputFunction3", open_door)
    first = ops.answer("open-front-1", n=2)
    ops.send("00:00:01/call/CmdOutputFunction3", open_door)
    answers = ops.answer("open-front-1", n=3) and ops.answers("open-front-1")
    assert [x["ok"] for x in answers] == [True] * 3, answers
    assert sum(1 for x in answers if x.get("repeat")) == 2
    assert len({x["audit_id"] for x in answers}) == 1 and first["audit_id"] == answers[0]["audit_id"]
    audits = [r for r in g.records(kind="audit") if r["fields"].get("request_id") == "open-front-1"]
    assert len(audits) == 1
    summary = sim.stop()
    assert counts(summary, "commands:").get(94, 0) == 1, summary
    g.stop()


def test_bad_requests_get_an_error_answer_and_nothing_runs(site, bus):
    broker = bus.broker().start()
    g = site.gateway(extra=mqtt_config(broker)).start()
    sim = site.sim(g.port, "--count", "1")
    g.connected(1)
    ops = Requester(bus, broker)
    # Not JSON: no reply topic to be read, so the refusal goes to gateway/errors.
    ops.send("00:00:01/call/GetTimeDate", None, raw="{not json")
    err = wait_for(lambda: ops.errors(), 30, "the refusal on gateway/errors")[-1]
    assert err["status"] == 400 and err["topic"] == f"{PREFIX}/00:00:01/call/GetTimeDate" and err["id"] is None
    # A reply topic outside the gateway's reply/ level is never published on.
    ops.send("00:00:01/call/GetTimeDate", {"id": "elsewhere"}, raw=json.dumps(
        {"id": "elsewhere", "reply_to": f"{PREFIX}/00:00:01/event"}))
    err = wait_for(lambda: len(ops.errors()) >= 2 and ops.errors(), 30, "the second refusal")[-1]
    assert (err["field"], err["status"]) == ("reply_to", 400)
    cases = [
        ("00:00:01/call/GetTimeDat", {}, {}, 404, None),
        ("00:00:01/call/CmdOutputFunction3", {"target": 99, "bitOrFunctionCode": 0, "state": 1}, {}, 400, "target"),
        ("00:00:01/call/GetTimeDate", {"mac": "00:00:02"}, {}, 400, "mac"),
        ("zz/call/GetTimeDate", {}, {}, 400, "mac"),
        ("00:00:01/call/GetTimeDate", [], {}, 400, "args"),
        ("00:00:01/call/GetTimeDate", {}, {"colour": "red"}, 400, "colour"),
        ("00:00:01/call/Shutdown", {}, {}, 403, None),
        ("gateway/call/GetTimeDate", {}, {}, 400, "mac"),
    ]
    for n, (topic, args, more, status, field) in enumerate(cases):
        a = ops.call(topic, args, **more) if not isinstance(args, list) else None
        if a is None:
            ops.send(topic, {"id": f"list-{n}", "args": args})
            a = ops.answer(f"list-{n}")
        assert a["status"] == status and a.get("field") == field and a["error"], (topic, a)
        if status == 404:
            assert "GetTimeDate" in a["suggestions"]
    # A retained request would run at every connection: refused, and left to its owner to clear.
    ops.send("00:00:01/call/GetTimeDate", None, raw=json.dumps({"id": "kept", "reply_to": ops.reply_to}))
    g.stop()
    ops.client.publish(f"{PREFIX}/00:00:01/call/RebootBoard", json.dumps(
        {"id": "retained-1", "reply_to": ops.reply_to, "args": {"target": 0}}), retain=True)
    g.start()
    retained = ops.answer("retained-1")
    assert retained["status"] == 400 and "retained" in retained["error"]
    ops.client.publish(f"{PREFIX}/00:00:01/call/RebootBoard", b"", retain=True)
    summary = sim.stop()
    # Nothing refused reached the controller: GetTimeDate once ("kept"), no output, no reboot.
    commands = counts(summary, "commands:")
    assert (commands.get(19), commands.get(94, 0), commands.get(96, 0), commands.get(50, 0)) == (1, 0, 0, 0), summary
    assert not [r for r in g.records(kind="audit") if r["fields"].get("export") in ("CmdOutputFunction3", "RebootBoard")]
    g.stop()


SECRET = "a-shared-secret-of-the-site"


def test_hmac_refuses_bad_and_replayed_requests(site, bus):
    broker = bus.broker().start()
    g = site.gateway(extra=mqtt_config(broker, f'hmac_secret = "{SECRET}"\nhmac_window_s = 30\n')).start()
    sim = site.sim(g.port, "--count", "1")
    g.connected(1)
    ops = Requester(bus, broker)
    topic = f"{PREFIX}/00:00:01/call/CmdOutputFunction3"
    args = {"target": 32, "bitOrFunctionCode": 0, "state": 1}

    def send(request):
        ops.send("00:00:01/call/CmdOutputFunction3", None, raw=json.dumps(request))
        return ops.answer(request["id"], n=len(ops.answers(request["id"])) + 1)

    good = sign(SECRET, {"id": "signed-1", "args": args, "reply_to": ops.reply_to}, topic)
    assert send(good)["ok"]
    # The same signed request again within the window: answered again, not run again.
    again = send(good)
    assert again["ok"] and again["repeat"]
    refusals = {
        "unsigned": {"id": "unsigned", "args": args, "reply_to": ops.reply_to},
        "wrong secret": sign("not-the-secret-of-the-site", {"id": "wrong", "args": args, "reply_to": ops.reply_to}, topic),
        "changed args": dict(sign(SECRET, {"id": "changed", "args": args, "reply_to": ops.reply_to}, topic),
                             args=dict(args, bitOrFunctionCode=1)),
        "other topic": sign(SECRET, {"id": "moved", "args": args, "reply_to": ops.reply_to},
                            f"{PREFIX}/00:00:02/call/CmdOutputFunction3"),
        "replayed": sign(SECRET, {"id": "old", "args": args, "reply_to": ops.reply_to}, topic, ts=int(time.time()) - 600),
        "from the future": sign(SECRET, {"id": "future", "args": args, "reply_to": ops.reply_to}, topic,
                                ts=int(time.time()) + 600),
    }
    for what, request in refusals.items():
        a = send(request)
        assert a["status"] == 401 and a["field"] in ("ts", "hmac"), (what, a)
    assert "replayed" in send(dict(refusals["replayed"], id="old"))["error"]
    summary = sim.stop()
    assert counts(summary, "commands:").get(94, 0) == 1, summary
    assert g.metric("zanthd_mqtt_requests_total", outcome="refused", status="401") >= len(refusals)
    g.stop()


def test_tls_with_passwords_and_the_shipped_acl(site, bus):
    pki = make_certificates(site.dir)
    with open(os.path.join(REPO, "packaging/mosquitto-zanth.acl")) as f:
        acl = f.read().replace("zanth/lobby/", f"{PREFIX}/").replace("-lobby", "-site")
    users = {"zanthd-site": "gateway-pw", "ops": "ops-pw", "bms": "bms-pw", "doors-site": "doors-pw"}
    broker = bus.broker(tls=(pki["ca"], *pki["server"]), passwords=users, acl=acl).start()
    tls = (pki["ca"], *pki["client"])
    secret = os.path.join(site.dir, "mqtt-password")
    with open(secret, "w") as f:
        f.write("gateway-pw\n")
    g = site.gateway(extra=mqtt_config(broker, f'username = "zanthd-site"\npassword_file = "{secret}"\n'
                                               f'tls_ca = "{pki["ca"]}"\ntls_cert = "{pki["client"][0]}"\n'
                                               f'tls_key = "{pki["client"][1]}"\n')).start()
    bms = bus.client(broker, username="bms", password="bms-pw", tls=tls, subscribe=[f"{PREFIX}/#"]).connect()
    sim = site.sim(g.port, "--count", "1", "--event-interval-ms", "50")
    wait_for(lambda: g.metric("zanthd_mqtt_connected") == 1, 30, "zanthd on the TLS broker")
    wait_for(lambda: any(t.endswith("/event") for t, _, _ in bms.taken()), 30, "events at the BMS")
    # The ACL lets the BMS read events and statuses, and nothing else.
    assert {t.split("/")[-1] for t, _, _ in bms.taken()} <= {"event", "alarm", "status"}
    # The operations centre runs a command over TLS; the BMS's request never reaches the gateway.
    ops = Requester(bus, broker, name="ops", username="ops", password="ops-pw", tls=tls)
    bms_requests = bus.client(broker, username="bms", password="bms-pw", tls=tls).connect()
    bms_requests.publish(f"{PREFIX}/00:00:01/call/CmdOutputFunction3", json.dumps(
        {"id": "from-bms", "reply_to": f"{PREFIX}/reply/bms/1", "args": {"target": 32, "bitOrFunctionCode": 0, "state": 1}}))
    a = ops.call("00:00:01/call/GetTimeDate")
    assert a["ok"] and a["status"] == 200
    doors = Requester(bus, broker, name="doors-site", username="doors-site", password="doors-pw", tls=tls)
    assert doors.call("00:00:01/call/GetTimeDate")["ok"]
    assert not [r for r in g.records(kind="audit") if r["fields"].get("request_id") == "from-bms"]
    # No password, or a wrong one: refused (5: not authorised). No client certificate: no link.
    ca, cert, key = tls
    assert connack(broker, ca, cert, key, "ops", "ops-pw") == 0
    assert connack(broker, ca, cert, key) == 5
    assert connack(broker, ca, cert, key, "ops", "wrong") == 5
    assert connack(broker, ca, None, None, "ops", "ops-pw") is None
    sim.stop()
    g.stop()


def test_door_decisions_over_the_bus_and_deny_when_nobody_answers(site, bus):
    broker = bus.broker().start()
    extra = mqtt_config(broker) + '[decisions]\nmode = "mqtt"\nmqtt_timeout_ms = 400\n'
    g = site.gateway(extra=extra, doors='[[doors]]\nname = "front"\ncontroller = "00:00:01"\ndoor = 1\n').start()
    asked = []

    def decide(client, m):
        request = json.loads(m.payload)
        asked.append((m.topic, request))
        # The first answer decides; a second, contrary one is dropped.
        for grant in (request["card"] == 1001, request["card"] != 1001):
            client.client.publish(request["reply_to"], json.dumps(
                {"id": request["id"], "grant": grant, "reason": "decided on the bus"}), qos=1)

    decider = bus.client(broker, subscribe=[f"{PREFIX}/+/decide"])
    decider.handlers.append(decide)
    decider.connect()
    sim = site.sim(g.port, "--count", "1", "--lookup-interval-ms", "250")
    lookups = wait_for(lambda: len(g.records(kind="lookup")) >= 8 and g.records(kind="lookup"), 60, "8 look-ups")
    by_card = {}
    for record in lookups:
        by_card.setdefault(record["fields"]["card"], set()).add((record["decision"], record["source"],
                                                                 record["fields"]["reason"]))
        assert record["latency_ms"] < 400
    assert by_card[1001] == {("grant", "mqtt", "decided on the bus")}
    assert by_card[2001] == by_card[3003] == by_card[4242] == {("deny", "mqtt", "decided on the bus")}
    topic, request = asked[0]
    assert topic == f"{PREFIX}/00:00:01/decide" and request["mac"] == "00:00:01" and request["deadline_ms"] == 400
    assert {r["door_name"] for _, r in asked if r["door"] == 1} == {"front"}
    doors = wait_for(lambda: g.records(kind="door"), 30, "door reports")
    assert {d["fields"]["result"] for d in doors if d["fields"]["card"] == "1001"} == {"granted"}
    assert g.metric("zanthd_mqtt_decision_answers_total", outcome="late or unknown") >= 4
    # Nobody answers: deny at the deadline.
    decider.cleanup()
    seen = len(lookups)
    timed_out = wait_for(lambda: [r for r in g.records(kind="lookup")[seen:] if r["source"] == "mqtt-timeout"], 60,
                         "look-ups that nobody answered")
    assert {r["decision"] for r in timed_out} == {"deny"}
    assert all(350 <= r["latency_ms"] < 1000 for r in timed_out), [r["latency_ms"] for r in timed_out]
    # No broker at all: deny at once.
    broker.stop()
    seen = len(g.records(kind="lookup"))
    offline = wait_for(lambda: [r for r in g.records(kind="lookup")[seen:] if r["source"] == "mqtt-offline"], 60,
                       "look-ups while the broker is away")
    assert {r["decision"] for r in offline} == {"deny"} and max(r["latency_ms"] for r in offline) < 100
    sim.stop()
    g.stop()
