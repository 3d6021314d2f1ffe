"""The page's server by HTTP: who is admitted, what it refuses, what it sends, and whom it drops.

Usage: server_test.py MSGSVR ZORWEB PEER
"""
import http.client
import os
import signal
import socket
import ssl
import subprocess
import sys
import unittest

from bus import Bus, until

PROGRAMS = dict(zip(("msgsvr", "zorweb", "peer"), sys.argv[1:4]))
FORM = "application/x-www-form-urlencoded"


class Admission(unittest.TestCase):
    def setUp(self):
        self.bus = Bus(PROGRAMS, "names = gateway.example\n")
        self.addCleanup(self.bus.close)
        with open(f"{self.bus.root}/token", encoding="utf-8") as file:
            self.token = file.read().strip()

    def login(self, token, source="127.0.0.1"):
        return self.bus.ask("/login", "POST", f"token={token}", source, Content_Type=FORM)

    def test_only_the_login_is_open(self):
        self.assertEqual(os.stat(f"{self.bus.root}/token").st_mode & 0o777, 0o640)
        self.assertEqual(self.bus.ask("/").getheader("Location"), "/login")
        for path in ("/events", "/metrics", "/page.js", "/nothing"):
            self.assertEqual(self.bus.ask(path).status, 401, path)
        reply = self.login(self.token)
        self.assertEqual((reply.status, reply.getheader("Location")), (303, "/"))
        cookie = reply.getheader("Set-Cookie")
        self.assertRegex(cookie, r"^zorweb=[0-9a-f]{64}; Path=/; HttpOnly; SameSite=Strict$")
        session = cookie.split(";")[0]
        self.assertEqual(self.bus.ask("/", Cookie=session).status, 200)
        self.assertEqual(self.bus.ask("/", Cookie=session[:-1] + "g").status, 303)
        metrics = self.bus.ask("/metrics", Authorization="Bearer " + self.token)
        self.assertEqual(metrics.status, 200)
        self.assertTrue(metrics.text.endswith("# EOF\n"))
        self.assertIn("zor_bus_clients ", metrics.text)

    def test_guessing_is_slowed_down(self):
        for attempt in range(5):
            self.assertEqual(self.login("wrong").getheader("Location"), "/login#wrong", attempt)
        # Every process of this machine has all of these addresses.
        for source in ("127.0.0.1", "127.0.0.2"):
            # A busy machine may take longer than the pause between attempts.
            until("often", lambda: self.login("wrong", source).getheader("Location") == "/login#often")
        # It must not keep out the administrator, who has the token.
        self.assertEqual(self.bus.ask("/metrics", Authorization="Bearer " + self.token).status, 200)
        self.assertEqual(self.login(self.token).getheader("Location"), "/")

    def test_refuses_what_other_sites_and_tools_send(self):
        bearer = {"Authorization": "Bearer " + self.token}
        cases = (
            ({}, 200),
            ({"Host": "gateway.example:8780"}, 200),
            ({"Host": "[::1]:8780"}, 200),
            ({"Host": "attacker.example"}, 403),
            ({"Host": "localhost.attacker.example"}, 403),
            ({"Host": "127.0.0.1:x"}, 403),
            ({"Origin": "http://attacker.example"}, 403),
            ({"Origin": "null"}, 403),
            ({"Host": "localhost:1", "Origin": "http://localhost:2"}, 403),
            ({"Sec-Fetch-Site": "cross-site", "Sec-Fetch-Mode": "no-cors"}, 403),
            ({"Sec-Fetch-Site": "same-origin", "Sec-Fetch-Mode": "cors"}, 200),
        )
        for headers, status in cases:
            reply = self.bus.ask("/metrics", **bearer, **headers)
            self.assertEqual(reply.status, status, headers)
            policy = reply.getheader("Content-Security-Policy")
            for part in ("default-src 'none'", "script-src 'self'", "frame-ancestors 'none'"):
                self.assertIn(part, policy)
            self.assertEqual(reply.getheader("X-Content-Type-Options"), "nosniff")
            self.assertEqual(reply.getheader("Referrer-Policy"), "no-referrer")
        for method in ("POST", "PUT", "DELETE", "OPTIONS"):
            self.assertEqual(self.bus.ask("/", method, **bearer).status, 405, method)
        self.assertEqual(self.bus.ask("/login", "POST", "x" * 5000, Content_Type=FORM).status, 413)
        self.assertIn(self.bus.ask("/" + "x" * 40000).status, (400, 414, 431))

    def test_serves_tls_only_with_a_certificate(self):
        bus = self.bus
        certificate, key = f"{bus.root}/certificate", f"{bus.root}/key"
        subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-subj", "/CN=gateway",
                        "-addext", "subjectAltName=IP:127.0.0.1", "-keyout", key, "-out", certificate],
                       check=True, capture_output=True)
        for file in (certificate, key):
            os.chmod(file, 0o600)
        bus.end("zorweb")
        self.assertIn("https://", bus.web("certificate = /certificate\nkey = /key\n"))
        bus.tls = ssl.create_default_context(cafile=certificate)
        token = self.token
        self.assertEqual(bus.ask("/").getheader("Location"), "/login")
        self.assertEqual(bus.ask("/metrics", Authorization="Bearer " + token[:-1]).status, 401)
        self.assertEqual(bus.ask("/metrics", Authorization="Bearer " + token).status, 200)
        cookie = bus.ask("/login", "POST", f"token={token}", Content_Type=FORM).getheader("Set-Cookie")
        self.assertRegex(cookie, r"^__Host-zorweb=[0-9a-f]{64}; Secure; Path=/; HttpOnly; SameSite=Strict$")
        session = cookie.split(";")[0]
        self.assertEqual(bus.ask("/", Cookie=session).status, 200)
        self.assertEqual(bus.ask("/", Cookie=session, Origin=f"http://127.0.0.1:{bus.port}").status, 403)
        bus.tls = None
        with self.assertRaises((OSError, http.client.HTTPException)):
            bus.ask("/login")

    def test_asks_the_systems_authentication_for_passwords(self):
        services = f"{self.bus.root}/etc/pam.d"
        os.makedirs(services)
        check = f"{self.bus.root}/check"
        with open(check, "w", encoding="utf-8") as file:
            file.write("#!/bin/sh\n[ \"$PAM_USER:$(tr -d '\\0')\" = 'admin:open & sesame' ]\n")
        os.chmod(check, 0o755)
        with open(f"{services}/zorweb", "w", encoding="utf-8") as file:
            file.write(f"auth required pam_exec.so quiet expose_authtok {check}\naccount required pam_permit.so\n")
        self.bus.end("zorweb")
        self.bus.web("login = pam\n")
        login = lambda body: self.bus.ask("/login", "POST", body, Content_Type=FORM).getheader("Location")
        self.assertEqual(login("user=admin&password=open+%26+sesame"), "/")
        for body in ("user=admin&password=open", "user=root&password=open+%26+sesame", "user=admin&password=",
                     "user=admin%00&password=open+%26+sesame"):
            self.assertEqual(login(body), "/login#wrong", body)
        self.assertEqual(self.bus.ask("/metrics", Authorization="Bearer ").status, 401)

    def test_does_not_start_where_everybody_could_look(self):
        self.bus.end("zorweb")
        for settings, why in (
            ("listen = 0.0.0.0:0\n", "needs a certificate"),
            ("login = none\nlisten = 192.0.2.1:0\n", "needs a login"),
        ):
            path = f"{self.bus.root}/exposed.conf"
            with open(path, "w", encoding="utf-8") as file:
                file.write(settings)
            process = self.bus.start("exposed", [PROGRAMS["zorweb"], "--settings", path], why)
            self.assertEqual(process.wait(60), 3)
            self.assertIn(why, self.bus.said("exposed"))


class Pages(unittest.TestCase):
    def setUp(self):
        self.bus = Bus(PROGRAMS, "login = none\n")
        self.addCleanup(self.bus.close)

    def test_shows_hostile_texts_as_text(self):
        self.bus.peer("<b>&\"'", "idle")
        events = self.bus.events("?traffic=1&daemon=talker")
        self.bus.peer("talker", "tell", "<b>&\"'", "0x4062")
        names = lambda view: [each["name"] for each in view["daemons"]]
        events.next("view", lambda view: "<b>&\"'" in names(view))
        seen = events.next("traffic", lambda data: any(each["type"] == "0x4062" for each in data["messages"]))
        self.assertTrue(all("talker" in (each["from"], each["to"]) for each in seen["messages"]))
        events.close()
        log = f"{self.bus.root}/online/log/mlog.log"
        os.makedirs(os.path.dirname(log))
        line = b"[00000000001][x][ERRO]:<script>\x1b[2J\xff\xe2\x80\xae\n"
        with open(log, "wb") as file:
            file.write(b"[overturn=000][offset=%010d][uploadoffset=000^0000000063]" % (63 + len(line)))
            file.seek(63)
            file.write(line)
        events = self.bus.events("?logs=1")
        lines = events.next("mlog", lambda data: data["lines"])["lines"]
        self.assertEqual(lines, ["[00000000001][x][ERRO]:<script>\\x1b[2J\\xff\\xe2\\x80\\xae"])
        self.assertEqual(self.bus.ask("/events?daemon=a%0ab").status, 400)
        events.close()
        self.bus.end("zorweb")
        self.bus.web("login = none\nmlog_file = /\udcff\n")
        self.assertIn("/\\xff", self.bus.events("?logs=1").next("mlog")["problem"])

    def test_drops_a_page_that_does_not_read_and_serves_a_hundred_others(self):
        silent = socket.create_connection(("127.0.0.1", self.bus.port))
        silent.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
        silent.sendall(b"GET /events?traffic=1 HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n")
        pages = [self.bus.events() for _ in range(100)]
        self.bus.peer("sink", "idle")
        for page in pages:
            page.next("view", lambda view: any(each["name"] == "sink" for each in view["daemons"]))
        descriptors = lambda: len(os.listdir(f"/proc/{self.bus.running['zorweb'].pid}/fd"))
        before = descriptors()
        self.bus.peer("talker", "talk", "sink", "0x4062", "1")
        # It has not read for longer than the server waits; the buffers on the way fill first.
        until("the silent page is dropped", lambda: pages[0].next("view") and descriptors() < before, patience=240)
        for page in pages[1:]:
            page.next("view")
            page.close()
        silent.close()

    def test_ends_while_requests_arrive(self):
        self.bus.running["zorweb"].send_signal(signal.SIGSTOP)
        for path in ("/metrics", "/events") * 8:
            browser = socket.create_connection(("127.0.0.1", self.bus.port))
            self.addCleanup(browser.close)
            browser.sendall(f"GET {path} HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n".encode())
        # It stays stopped until SIGCONT. Sent later, that could reach a sanitizer's search for leaks, which would never end.
        self.bus.running["zorweb"].send_signal(signal.SIGTERM)
        self.assertEqual(self.bus.end("zorweb", signal.SIGCONT), 0)

    def test_notices_a_page_that_has_gone_while_the_message_server_is_frozen(self):
        descriptors = lambda: len(os.listdir(f"/proc/{self.bus.running['zorweb'].pid}/fd"))
        events = self.bus.events()
        self.bus.running["msgsvr"].send_signal(signal.SIGSTOP)
        self.addCleanup(self.bus.running["msgsvr"].send_signal, signal.SIGCONT)
        events.next("state", lambda state: "does not answer" in state["trouble"])
        before = descriptors()
        for page in [self.bus.events() for _ in range(8)]:
            page.close()
        until("the pages that have gone are closed", lambda: descriptors() <= before)

    def test_stays_on_the_bus_while_the_message_server_is_replaced(self):
        self.bus.peer("sink", "idle")
        events = self.bus.events("?traffic=1")
        events.next("view")
        for number in range(3):
            self.bus.running["msgsvr"].send_signal(signal.SIGHUP)
            until("a successor serves", lambda: self.bus.said("msgsvr").count("took over from") > number)
            self.bus.peer(f"peer{number}", "talk", "sink", "0x4062", "100")
            events.next("view", lambda view: any(each["name"] == f"peer{number}" for each in view["daemons"]))
            events.next("traffic", lambda data: any(each["from"] == f"peer{number}" for each in data["messages"]))
        self.assertEqual(events.troubles, [])
        self.assertEqual(self.bus.ask("/metrics").status, 200)
        events.close()

    def test_resumes_after_the_message_server_was_killed(self):
        self.bus.peer("lan", "idle")
        events = self.bus.events()
        events.next("view", lambda view: len(view["daemons"]) == 1)
        self.bus.end("msgsvr", signal.SIGKILL)
        self.assertIn("has gone", events.next("state", lambda state: state["trouble"])["trouble"])
        self.assertEqual(self.bus.ask("/metrics").status, 503)
        self.bus.server()
        events.next("state", lambda state: not state["trouble"])
        events.next("view")
        self.assertEqual(self.bus.end("zorweb"), 0)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], warnings="ignore")
