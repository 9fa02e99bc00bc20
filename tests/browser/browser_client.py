#!/usr/bin/python3
"""A KeePassXC-Browser client written from the published protocol, speaking to
argentpm-browser the way the browser does (4-byte native-endian length, then JSON).

Usage: browser_client.py BRIDGE
The harness (tst_browser) runs the window's end in-process and answers the window's
questions; "STEP x" lines on stdout ask it to do x, and it answers "ok" on stdin.
Exit status 0 when every check held; each failure is printed."""

import base64, json, os, select, struct, subprocess, sys, time
import nacl.public, nacl.utils

BRIDGE = sys.argv[1]
failures = []


def check(cond, what):
    print(("ok   " if cond else "FAIL ") + what, file=sys.stderr, flush=True)
    if not cond:
        failures.append(what)


def b64(b):
    return base64.b64encode(b).decode()


def unb64(s):
    return base64.b64decode(s)


def incremented(nonce):
    n = bytearray(nonce)
    c = 1
    for i in range(len(n)):
        c += n[i]
        n[i] = c & 0xFF
        c >>= 8
    return bytes(n)


def step(what):
    print("STEP " + what, flush=True)
    line = sys.stdin.readline().strip()
    assert line == "ok", line


class Bridge:
    def __init__(self):
        self.p = subprocess.Popen([BRIDGE], stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        self.buf = b""

    def send_raw(self, data):
        self.p.stdin.write(data)
        self.p.stdin.flush()

    def send(self, obj):
        body = json.dumps(obj).encode()
        self.send_raw(struct.pack("=I", len(body)) + body)

    def recv(self, timeout=10.0):
        end = time.time() + timeout
        while True:
            if len(self.buf) >= 4:
                n = struct.unpack("=I", self.buf[:4])[0]
                if len(self.buf) >= 4 + n:
                    msg, self.buf = self.buf[4:4 + n], self.buf[4 + n:]
                    return json.loads(msg)
            left = end - time.time()
            if left <= 0:
                return None
            r, _, _ = select.select([self.p.stdout], [], [], left)
            if r:
                chunk = os.read(self.p.stdout.fileno(), 65536)
                if not chunk:
                    return None
                self.buf += chunk

    def close(self):
        try:
            self.p.stdin.close()
        except BrokenPipeError:
            pass
        try:
            return self.p.wait(timeout=10)
        except subprocess.TimeoutExpired:
            self.p.kill()
            return None


class Client:
    def __init__(self, bridge):
        self.b = bridge
        self.key = nacl.public.PrivateKey.generate()
        self.client_id = b64(nacl.utils.random(24))
        self.server = None
        self.id = None
        self.id_key = nacl.public.PrivateKey.generate()

    def change_keys(self):
        nonce = nacl.utils.random(24)
        self.b.send({"action": "change-public-keys", "publicKey": b64(bytes(self.key.public_key)),
                     "nonce": b64(nonce), "clientID": self.client_id})
        r = self.b.recv()
        check(r is not None and r.get("success") == "true", "change-public-keys answered")
        check(r is not None and unb64(r["nonce"]) == incremented(nonce), "key exchange: nonce incremented")
        self.server = nacl.public.PublicKey(unb64(r["publicKey"]))
        return r

    def request(self, action, msg, nonce=None, trigger_unlock=False, request_id=None, wait=True):
        nonce = nonce or nacl.utils.random(24)
        m = dict(msg, action=action)
        box = nacl.public.Box(self.key, self.server)
        sealed = box.encrypt(json.dumps(m).encode(), nonce).ciphertext
        req = {"action": action, "message": b64(sealed), "nonce": b64(nonce), "clientID": self.client_id}
        if trigger_unlock:
            req["triggerUnlock"] = "true"
        if request_id:
            req["requestID"] = request_id
        self.last = req
        self.b.send(req)
        return self.reply(nonce) if wait else nonce

    def reply(self, nonce, timeout=10.0):
        r = self.b.recv(timeout)
        while r is not None and r.get("action") in ("database-locked", "database-unlocked"):
            r = self.b.recv(timeout)
        return self.open(r, nonce)

    def open(self, r, nonce):
        if r is None or "message" not in r:
            return r
        check(unb64(r["nonce"]) == incremented(nonce), r["action"] + ": reply nonce is the request's + 1")
        box = nacl.public.Box(self.key, self.server)
        inner = json.loads(box.decrypt(unb64(r["message"]), unb64(r["nonce"])))
        check(inner.get("nonce") == r["nonce"], r["action"] + ": sealed nonce matches")
        return inner

    def keys(self):
        return [{"id": self.id, "key": b64(bytes(self.id_key.public_key))}]

    def logins(self, url, **kw):
        return self.request("get-logins", {"id": self.id, "url": url, "keys": self.keys(), **kw})


def error_code(r):
    return None if r is None else r.get("errorCode")


def main():
    b = Bridge()
    c = Client(b)
    c.change_keys()

    h = c.request("get-databasehash", {})
    check(h is not None and len(h.get("hash", "")) == 64, "get-databasehash gives a hash")

    a = c.request("associate", {"key": b64(bytes(c.key.public_key)), "idKey": b64(bytes(c.id_key.public_key))},
                  trigger_unlock=True)
    check(a is not None and a.get("id") == "python-test", "associate: named through the window's question")
    c.id = a and a.get("id")

    t = c.request("test-associate", {"id": c.id, "key": b64(bytes(c.id_key.public_key))})
    check(t is not None and t.get("success") == "true", "test-associate with the right key")
    wrong = b64(bytes(nacl.public.PrivateKey.generate().public_key))
    t = c.request("test-associate", {"id": c.id, "key": wrong})
    check(error_code(t) == "8", "test-associate with a wrong key: association failed")
    r = c.request("get-logins", {"id": c.id, "url": "https://exact.example/", "keys": [{"id": c.id, "key": wrong}]})
    check(error_code(r) == "8", "get-logins with an unknown key is refused")

    def names(r):
        return [e["name"] for e in (r or {}).get("entries", [])]

    r = c.logins("https://exact.example/login")
    check(names(r) == ["Exact"] and r["entries"][0]["login"] == "e1" and r["entries"][0]["password"] == "p1",
          "get-logins: exact host")
    check(names(c.logins("https://login.sub.example/")) == ["Parent"], "get-logins: a subdomain")
    check(names(c.logins("https://example.sub/")) == [], "get-logins: a parent domain gets nothing")
    check(names(c.logins("https://port.example:8443/a")) == ["Port"], "get-logins: the record's port")
    check(names(c.logins("https://port.example/a")) == [], "get-logins: another port")
    check(names(c.logins("http://secure.example/")) == [], "get-logins: http never gets an https record")
    check(names(c.logins("https://secure.example/")) == ["Secure"], "get-logins: https gets it")
    check(names(c.logins("https://plain.example/")) == ["Plain"], "get-logins: an http record serves https")
    check(names(c.logins("http://both.example/")) == ["Both"], "get-logins: no scheme serves http")
    check(names(c.logins("https://nothing.example/")) == [], "get-logins: no match")
    many = names(c.logins("https://many.example/app/login"))
    check(len(many) == 31 and many[0] == "Many app", "get-logins: many, the most specific path first")
    check(names(c.logins("https://deny.example/")) == [], "get-logins: denied in the question")
    check(names(c.logins("https://once.example/")) == ["Once"], "get-logins: allowed once")
    check(names(c.logins("https://once.example/")) == ["Once"], "get-logins: allowed once, asked again")
    check(names(c.logins("https://exact.example/")) == ["Exact"], "get-logins: always allowed, not asked again")
    r = c.request("get-logins", {"id": c.id, "keys": c.keys()})
    check(error_code(r) == "14", "get-logins without a URL")

    s = c.request("set-login", {"id": c.id, "login": "neu", "password": "np1", "url": "https://new.example/signup",
                                "submitUrl": "https://new.example/signup"})
    check(s is not None and s.get("success") == "true" and s.get("error") == "success", "set-login: a new record")
    n = c.logins("https://new.example/")
    check(names(n) == ["new.example"] and n["entries"][0]["password"] == "np1", "the new record is found")
    exact_uuid = c.logins("https://exact.example/")["entries"][0]["uuid"]
    s = c.request("set-login", {"id": c.id, "uuid": exact_uuid, "login": "e1", "password": "p2",
                                "url": "https://exact.example/"})
    check(s is not None and s.get("success") == "true", "set-login: update, asked first")
    check(c.logins("https://exact.example/")["entries"][0]["password"] == "p2", "the updated password is given")
    s = c.request("set-login", {"id": c.id, "uuid": exact_uuid, "login": "refuse", "password": "p3",
                                "url": "https://exact.example/"})
    check(error_code(s) == "6", "set-login: an update the user refuses")
    check(c.logins("https://exact.example/")["entries"][0]["login"] == "e1", "the refused update changed nothing")
    s = c.request("set-login", {"id": c.id, "login": "keepold", "password": "zz", "url": "https://plain.example/"})
    check(s is not None and s.get("success") == "true", "set-login: another login on a known site is a new record")

    g = c.request("generate-password", {"requestID": "r1"}, request_id="r1")
    check(g is not None and len(g.get("password", "")) >= 8, "generate-password")

    groups = c.request("get-database-groups", {})
    top = [x["name"] for x in groups["groups"]["groups"][0]["children"]] if groups else []
    check("Browser" in top, "get-database-groups lists the folder Browser")
    ng = c.request("create-new-group", {"groupName": "Shop/Deals"})
    check(ng is not None and ng.get("name") == "Deals" and ng.get("uuid"), "create-new-group makes a path")
    again = c.request("create-new-group", {"groupName": "Shop/Deals"})
    check(again is not None and again.get("uuid") == ng.get("uuid"), "create-new-group finds it the next time")

    # Nonces: a replayed message and one whose nonce is not the one it was sealed with.
    c.logins("https://exact.example/")
    b.send(c.last)
    check(error_code(b.recv()) == "4", "a replayed nonce is refused")
    req = dict(c.last, nonce=b64(nacl.utils.random(24)))
    b.send(req)
    check(error_code(b.recv()) == "4", "a message under another nonce is refused")
    b.send(dict(c.last, nonce=b64(b"short")))
    check(error_code(b.recv()) == "4", "a nonce of the wrong size is refused")

    # Bad messages, answered with errors and no harm.
    b.send_raw(struct.pack("=I", 2 * 1024 * 1024) + b"x" * (2 * 1024 * 1024))
    r = b.recv()
    check(r is not None and "errorCode" in r, "a 2 MB message is answered with an error")
    body = b"{not json"
    b.send_raw(struct.pack("=I", len(body)) + body)
    check(r is not None and "errorCode" in (b.recv() or {}), "invalid JSON is answered with an error")
    b.send({"action": "fly-to-the-moon", "nonce": b64(nacl.utils.random(24))})
    check(error_code(b.recv()) == "12", "an unknown action: incorrect action")
    check(names(c.logins("https://exact.example/")) == ["Exact"], "still served after the bad messages")

    # Lock and unlock.
    step("lock")
    r = b.recv(5)
    check(r is not None and r.get("action") == "database-locked", "database-locked is pushed")
    r = c.logins("https://exact.example/")
    check(error_code(r) == "1", "locked: database not opened")
    nonce = c.request("get-logins", {"id": c.id, "url": "https://exact.example/", "keys": c.keys()},
                      trigger_unlock=True, wait=False)
    check(b.recv(1.0) is None, "locked with triggerUnlock: the request waits")
    step("unlock")
    r = b.recv(5)
    check(r is not None and r.get("action") == "database-unlocked", "database-unlocked is pushed")
    r = c.open(b.recv(5), nonce)
    check(names(r) == ["Exact"], "the waiting request is answered after the unlock")
    r = c.request("lock-database", {})
    check(r is not None and r.get("success") == "true", "lock-database")
    r = b.recv(5)
    check(r is not None and r.get("action") == "database-locked", "lock-database locks the window")
    step("unlock")
    b.recv(5)

    # The window closes while a request waits for its question.
    r = c.logins("https://close.example/")
    check(error_code(r) == "1", "window closing mid-request: database not opened")
    r = c.request("get-databasehash", {})
    check(error_code(r) == "1", "no window: database not opened")
    check(b.close() == 0, "the bridge ends with the browser's stream")

    # No window at all: a new bridge answers for a closed database.
    b2 = Bridge()
    b2.send({"action": "change-public-keys", "publicKey": b64(bytes(c.key.public_key)),
             "nonce": b64(nacl.utils.random(24)), "clientID": "x"})
    check(error_code(b2.recv()) == "1", "no window: change-public-keys answered as a closed database")
    b2.close()

    # Truncated length prefixes and bodies end the bridge quietly.
    for data, what in ((b"\x10\x00", "a truncated length prefix"), (struct.pack("=I", 100) + b"{}", "a truncated body")):
        b3 = Bridge()
        b3.send_raw(data)
        rc = b3.close()
        check(rc == 0 and b3.recv(0.5) is None, what + " ends the bridge quietly")

    print("DONE %d failure(s)" % len(failures), file=sys.stderr, flush=True)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
