"""The message bus's side of zanthd's end-to-end tests: Debian's mosquitto started on a free
loopback port with a config the test writes (plain, or TLS with a password file and an ACL file),
certificates made here with openssl, and real clients (paho, under /usr/bin/python3) that
subscribe, send requests and answer door decisions. Everything is stopped by the test's fixture,
on failure too; waits are on conditions with deadlines."""
import getpass
import hashlib
import hmac
import json
import os
import signal
import socket
import ssl
import subprocess
import threading
import time

import paho.mqtt.client as mqtt

from conftest import free_port, wait_for

MOSQUITTO = "/usr/sbin/mosquitto"


class Broker:
    """mosquitto on 127.0.0.1; `tls` is (ca, cert, key) of the server, and the clients must show
    a certificate of that CA too; `passwords` {user: password} makes a password file and refuses
    anonymous clients; `acl` is the text of an ACL file."""

    def __init__(self, directory, name="broker", tls=None, passwords=None, acl=None, persistence=False):
        self.dir = os.path.join(directory, name)
        os.makedirs(self.dir, exist_ok=True)
        self.port = free_port()
        self.tls = tls
        self.proc = None
        # Started as root, mosquitto would become the user "mosquitto", who can't read the test's files.
        lines = [f"user {getpass.getuser()}", f"listener {self.port} 127.0.0.1",
                 f"allow_anonymous {'false' if passwords else 'true'}",
                 # A subscriber's queue of QoS 1 messages while it is away: the tests count on
                 # every one.
                 "max_queued_messages 0",
                 f"log_dest file {os.path.join(self.dir, 'mosquitto.log')}",
                 "log_type error", "log_type warning", "log_type notice", "log_type information"]
        if persistence:
            lines += ["persistence true", f"persistence_location {self.dir}/"]
        if passwords:
            path = os.path.join(self.dir, "passwords")
            open(path, "w").close()
            for user, password in passwords.items():
                subprocess.run(["mosquitto_passwd", "-b", path, user, password], check=True, capture_output=True)
            lines.append(f"password_file {path}")
        if acl is not None:
            path = os.path.join(self.dir, "acl")
            with open(path, "w") as f:
                f.write(acl)
            lines.append(f"acl_file {path}")
        if tls:
            ca, cert, key = tls
            lines += [f"cafile {ca}", f"certfile {cert}", f"keyfile {key}", "require_certificate true"]
        self.config = os.path.join(self.dir, "mosquitto.conf")
        with open(self.config, "w") as f:
            f.write("\n".join(lines) + "\n")

    def start(self):
        self.proc = subprocess.Popen([MOSQUITTO, "-c", self.config], stdout=subprocess.DEVNULL,
                                     stderr=open(os.path.join(self.dir, "stderr.log"), "ab"))

        def listening():
            assert self.proc.poll() is None, f"mosquitto ended: {self.log_text()}"
            with socket.create_connection(("127.0.0.1", self.port), timeout=1):
                return True
        wait_for(listening, 30, "mosquitto to listen")
        return self

    def stop(self):
        """A real stop: SIGTERM, and mosquitto writes its persistence file as it ends."""
        if self.proc and self.proc.poll() is None:
            self.proc.send_signal(signal.SIGTERM)
            self.proc.wait(timeout=30)
        self.proc = None

    def log_text(self):
        try:
            with open(os.path.join(self.dir, "mosquitto.log")) as f:
                return f.read()[-3000:]
        except OSError:
            return ""

    def cleanup(self):
        if self.proc and self.proc.poll() is None:
            self.proc.kill()
            self.proc.wait()


def make_certificates(directory):
    """A CA, a server certificate for 127.0.0.1 and a client certificate, all signed here."""
    d = os.path.join(directory, "pki")
    os.makedirs(d, exist_ok=True)
    p = lambda name: os.path.join(d, name)

    def run(*args):
        subprocess.run(["openssl", *args], check=True, capture_output=True)
    run("req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "1", "-subj", "/CN=zanth test CA",
        "-keyout", p("ca.key"), "-out", p("ca.pem"))
    for name, extra in (("server", ["-addext", "subjectAltName=IP:127.0.0.1"]), ("client", [])):
        run("req", "-newkey", "rsa:2048", "-nodes", "-subj", f"/CN={name}", *extra,
            "-keyout", p(f"{name}.key"), "-out", p(f"{name}.csr"))
        ext = p(f"{name}.ext")
        with open(ext, "w") as f:
            f.write("subjectAltName=IP:127.0.0.1\n" if name == "server" else "extendedKeyUsage=clientAuth\n")
        run("x509", "-req", "-in", p(f"{name}.csr"), "-CA", p("ca.pem"), "-CAkey", p("ca.key"),
            "-CAcreateserial", "-days", "1", "-extfile", ext, "-out", p(f"{name}.pem"))
    return {"ca": p("ca.pem"), "server": (p("server.pem"), p("server.key")),
            "client": (p("client.pem"), p("client.key"))}


class Client:
    """A paho client that keeps every message it gets: [(topic, payload bytes, retain)]."""

    def __init__(self, broker, client_id="", clean=True, username=None, password=None, tls=None,
                 subscribe=(), qos=1):
        self.broker = broker
        self.client = mqtt.Client(client_id=client_id, clean_session=clean)
        self.lock = threading.Lock()
        self.messages = []
        self.connects = []  # the CONNACK codes
        self.subacks = []   # the granted QoS of each subscription the broker confirmed
        self.subscriptions = list(subscribe)
        self.qos = qos
        self.handlers = []
        if username:
            self.client.username_pw_set(username, password)
        if tls:
            ca, cert, key = tls
            self.client.tls_set(ca_certs=ca, certfile=cert, keyfile=key, cert_reqs=ssl.CERT_REQUIRED)
        self.client.on_connect = self._connected
        self.client.on_message = self._message
        self.client.on_subscribe = self._subscribed
        self.client.reconnect_delay_set(min_delay=0.1, max_delay=0.5)

    def _connected(self, client, userdata, flags, rc):
        with self.lock:
            self.connects.append(rc)
        if rc == 0:
            for topic in self.subscriptions:
                client.subscribe(topic, qos=self.qos)

    def _subscribed(self, client, userdata, mid, granted):
        with self.lock:
            self.subacks += list(granted)

    def _message(self, client, userdata, m):
        with self.lock:
            self.messages.append((m.topic, m.payload, m.retain))
        for handler in self.handlers:
            handler(self, m)

    def connect(self, wait=True):
        self.client.connect_async("127.0.0.1", self.broker.port, keepalive=10)
        self.client.loop_start()
        if wait:
            wait_for(lambda: 0 in self.connects and len(self.subacks) >= len(self.subscriptions), 30,
                     "the client to connect and subscribe")
        return self

    def publish(self, topic, payload, retain=False):
        info = self.client.publish(topic, payload if isinstance(payload, (bytes, str)) else json.dumps(payload),
                                   qos=self.qos, retain=retain)
        info.wait_for_publish(timeout=10)
        assert info.is_published(), f"the broker did not take the message on {topic}"

    def taken(self, prefix=""):
        with self.lock:
            return [(t, p, r) for t, p, r in self.messages if t.startswith(prefix)]

    def json(self, topic):
        return [json.loads(p) for t, p, _ in self.taken() if t == topic]

    def cleanup(self):
        self.client.loop_stop()
        try:
            self.client.disconnect()
        except Exception:
            pass


def journal_messages(client, prefix):
    """The journal's records a subscriber got, by id: {id: [record, ...]} (duplicates kept)."""
    out = {}
    for topic, payload, _ in client.taken(prefix + "/"):
        level = topic[len(prefix) + 1:].split("/")
        if level[0] == "gateway" or (len(level) > 1 and level[1] in ("call", "decide")) or level[0] == "reply":
            continue
        record = json.loads(payload)
        out.setdefault(record["id"], []).append((topic, record))
    return out


def sign(secret, request, topic, ts=None):
    """A request signed as zanthd checks it."""
    request = dict(request)
    request["ts"] = int(time.time()) if ts is None else ts
    args = json.dumps(request.get("args", {}), sort_keys=True, separators=(",", ":"), ensure_ascii=False)
    text = f"{request['id']}\n{request['ts']}\n{topic}\n{request['reply_to']}\n{args}"
    request["hmac"] = hmac.new(secret.encode(), text.encode(), hashlib.sha256).hexdigest()
    return request


def connack(broker, ca, cert=None, key=None, username=None, password=None):
    """Connects as a bare MQTT 3.1.1 client over TLS and returns the broker's CONNACK code, or
    None when the broker ended the link (or the handshake) without one."""
    context = ssl.create_default_context(cafile=ca)
    if cert:
        context.load_cert_chain(cert, key)

    def text(s):
        b = s.encode()
        return len(b).to_bytes(2, "big") + b
    flags = 0x02 | (0x80 if username else 0) | (0x40 if password else 0)
    body = text("MQTT") + bytes([4, flags]) + (10).to_bytes(2, "big") + text(f"probe-{os.getpid()}")
    body += (text(username) if username else b"") + (text(password) if password else b"")
    packet = bytes([0x10, len(body)]) + body
    try:
        with socket.create_connection(("127.0.0.1", broker.port), timeout=10) as raw:
            with context.wrap_socket(raw, server_hostname="127.0.0.1") as s:
                s.sendall(packet)
                answer = s.recv(4)
    except (ssl.SSLError, ConnectionError, socket.timeout):
        return None
    return answer[3] if len(answer) == 4 and answer[0] == 0x20 else None
