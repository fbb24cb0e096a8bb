"""The site console in a real browser: headless Chromium from Debian, driven by Selenium, against
zanthd and zanth-sim started by each test on free loopback ports and always stopped."""
import http.server
import os
import re
import subprocess
import threading

import requests
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys

from conftest import (DESKTOP, OPERATOR, PHONE, READER, Proxy, console_gateway, wait_until)

PAGES = ["controllers", "activity", "doors", "cardholders", "health"]


def on_page(b, name, timeout=20):
    b.wait(lambda b: b.visible("#shell") and b.find("#main").get_attribute("data-page") == name, timeout,
           f"the {name} page")


def retype(b, css, text):
    """Replaces an input's text as typing would, so that the page hears every change."""
    b.find(css).send_keys(Keys.CONTROL, "a")
    b.find(css).send_keys(Keys.BACKSPACE)
    if text:
        b.find(css).send_keys(text)


def row_ids(b):
    return {int(r.get_attribute("data-id")) for r in b.all("#activity-rows tr[data-id]")}


def test_login_with_a_token_and_a_wrong_one_refused_and_logout(site):
    g = console_gateway(site)
    b = site.browser()
    b.login(g, "not-a-token")
    b.wait(lambda b: "not known" in b.text("#login-error"), 15, "the refusal of a wrong token")
    assert not b.visible("#shell")
    assert not b.cookies(), "a refused login must leave no cookie"
    # An empty token is named before anything is sent.
    b.find("#login-token").clear()
    b.find("#login-submit").click()
    b.wait(lambda b: "Enter a token" in b.text("#login-error"), 5, "the empty token named")

    b.find("#login-token").send_keys(READER)
    b.find("#login-submit").click()
    on_page(b, "controllers")
    assert b.text("#who-name") == "viewer" and b.text("#who-scope") == "read-only"
    cookies = list(b.cookies().values())
    assert len(cookies) == 1
    assert cookies[0]["httpOnly"] and cookies[0]["sameSite"] == "Strict"
    # The page can do no more than the token: no door opens from a read-only session.
    b.page("doors")
    b.wait(lambda b: len(b.all(".door-card")) == 3, 10, "the doors")
    assert not b.all("[data-open]")
    # The token itself was not kept in the page.
    assert b.driver.execute_script("return document.body.innerHTML").find(READER) < 0

    b.click("#logout")
    b.wait(lambda b: b.visible("#login") and "logged out" in b.text("#login-error"), 10, "the login again")
    # The session is ended in the gateway too, not only in the page.
    assert g.get("/events", params={"kind": "audit"}).ok
    audits = [r["raw"] for r in g.records(kind="audit")]
    assert audits.count("console session opened") == 1 and "console session closed" in audits
    assert "console login refused" in audits
    b.open(f"http://127.0.0.1:{g.http_port}/")
    b.wait(lambda b: b.visible("#login"), 15, "the login after a reload")


def test_under_tls_the_cookie_is_secure_and_host_bound(site):
    cert, key = os.path.join(site.dir, "cert.pem"), os.path.join(site.dir, "key.pem")
    subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "1",
                    "-subj", "/CN=127.0.0.1", "-addext", "subjectAltName=IP:127.0.0.1",
                    "-keyout", key, "-out", cert], check=True, capture_output=True)
    g = console_gateway(site, tls=(cert, key))
    site.sim(g.port, "--count", "1")
    # The certificate was made here: this browser is told to take it.
    b = site.browser(flags=["--ignore-certificate-errors"])
    b.login(g)
    on_page(b, "controllers")
    b.wait(lambda b: len(b.all("#controllers-table tr[data-mac] .status-up")) == 1, 30, "the controller up")
    cookies = list(b.cookies().values())
    assert len(cookies) == 1
    c = cookies[0]
    assert c["name"].startswith("__Host-") and c["secure"] and c["httpOnly"] and c["sameSite"] == "Strict"
    assert c["path"] == "/" and not c.get("domain", "").startswith(".")  # this host only
    # An http:// origin is another origin than this https:// server.
    s = requests.Session()
    origin = f"https://127.0.0.1:{g.http_port}"
    r = s.post(f"{g.url}/session", json={"token": OPERATOR}, headers={"Origin": origin}, verify=cert)
    assert r.status_code == 201
    csrf = r.json()["csrf"]
    r = s.post(f"{g.url}/doors/Front entrance/open", verify=cert,
               headers={"Origin": f"http://127.0.0.1:{g.http_port}", "X-CSRF-Token": csrf})
    assert r.status_code == 403, r.text


def test_an_expired_session_leads_back_to_the_login(site):
    g = console_gateway(site, extra="[console]\nsession_max_s = 3\n")
    b = site.browser()
    b.login(g)
    on_page(b, "controllers")
    b.page("activity")
    # The session ends 3 s after the login: the live stream ends with it and the page is back at
    # the login, saying why.
    b.wait(lambda b: b.visible("#login") and "session has ended" in b.text("#login-error"), 20,
           "the login after the session's end")
    assert not b.visible("#shell")
    b.login(g)
    on_page(b, "controllers")


def test_controllers_come_up_with_model_firmware_and_drift(site):
    g = console_gateway(site)
    b = site.browser()
    b.login(g)
    on_page(b, "controllers")
    b.wait(lambda b: "No controller" in b.text("#main") or not b.all("#controllers-table tr[data-mac]"), 10,
           "an empty list")
    site.sim(g.port, "--count", "2", "--clock-offset-s", "-90", env={"TZ": "Europe/Berlin"})
    b.wait(lambda b: len(b.all("#controllers-table tr[data-mac] .status-up")) == 2, 30, "two controllers up")
    row = 'tr[data-mac="00:00:01"]'
    b.wait(lambda b: b.text(f"{row} .cell-model") not in ("", "…"), 30, "the model")
    info = g.get("/controllers/00:00:01/info").json()["info"].split(";")
    assert b.text(f"{row} .cell-model") == info[0]
    assert b.text(f"{row} .cell-firmware") == info[1]
    drift = g.get("/controllers/00:00:01/time").json()["drift_s"]
    assert -92 <= drift <= -88, drift
    b.wait(lambda b: re.fullmatch(r"−1 min (2[89]|3[01]) s", b.text(f"{row} .cell-drift")), 30, "a drift of 90 s")
    assert b.text(f"{row} .status-up") == "Connected"


def test_a_card_presented_appears_with_its_decision(site):
    g = console_gateway(site)
    assert g.request("POST", "/cardholders", json={"name": "Ada Lovelace", "cards": [{"number": 1001}],
                                                    "access": [{"door": "Front entrance"}]}).status_code == 201
    b = site.browser()
    b.login(g)
    on_page(b, "controllers")
    b.page("activity")
    # One controller presents 1001 at door 1, 2001 at door 2, 3003 at 3 and 4242 at 4, in turn.
    site.sim(g.port, "--count", "1", "--lookup-interval-ms", "300")
    granted = 'tr.rec-lookup .badge-grant'
    b.wait(lambda b: b.all(granted) and b.all("tr.rec-lookup .badge-deny"), 30, "a granted and a denied look-up")
    grant_row = b.all(granted)[0].find_element(By.XPATH, "./ancestor::tr")
    assert "Front entrance" in grant_row.text and "1001" in grant_row.text and "Ada Lovelace" in grant_row.text
    # Clicking it shows its raw text and fields, as journaled.
    rid = int(grant_row.get_attribute("data-id"))
    record = next(r for r in g.records(kind="lookup") if r["id"] == rid)
    grant_row.click()
    b.wait(lambda b: b.visible("#record-raw"), 10, "the record's detail")
    assert b.text("#record-raw") == record["raw"]
    b.shot("activity-record-desktop")
    assert str(record["fields"]["card"]) in b.text("#record-fields")
    b.driver.find_element(By.CSS_SELECTOR, ".dialog .icon-button").click()
    # Filtered by door: only the server room's look-ups and reports are left.
    b.find("#filter-door").send_keys("Server room")
    b.wait(lambda b: b.all("#activity-rows tr[data-id]") and all(
        "Server room" in r.text for r in b.all("#activity-rows tr[data-id]")), 15, "the server room's records only")
    # Filtered by type: no look-ups once they are unticked.
    b.find("#filter-door").send_keys("All doors")
    b.driver.find_element(By.XPATH, "//label[contains(., 'Look-ups')]").click()
    b.wait(lambda b: b.all("#activity-rows tr[data-id]") and not b.all("#activity-rows tr.rec-lookup"), 15,
           "no look-ups")


def test_older_entries_paged_from_the_journal(site):
    g = console_gateway(site)
    sim = site.sim(g.port, "--count", "1", "--event-interval-ms", "2")
    wait_until(lambda: g.get("/events", params={"limit": 1}).json()["last_id"] >= 500, 60, "500 records")
    sim.stop()
    events = g.records(kind="event")
    b = site.browser()
    b.login(g)
    on_page(b, "controllers")
    b.page("activity")
    b.wait(lambda b: len(b.all("#activity-rows tr[data-id]")) >= 100, 20, "the first page")
    first = row_ids(b)
    b.click("#older")
    b.wait(lambda b: len(b.all("#activity-rows tr[data-id]")) >= 200, 20, "the second page")
    assert first < row_ids(b)
    # Newest first, without a gap or a repeat among the events.
    ids = [int(r.get_attribute("data-id")) for r in b.all("#activity-rows tr.rec-event")]
    assert ids == sorted(ids, reverse=True) and len(ids) == len(set(ids))
    # Read again: the last events the simulator sent may have reached the journal since.
    journal = [e["id"] for e in g.records(kind="event") if ids[-1] <= e["id"] <= ids[0]]
    assert sorted(journal, reverse=True) == ids
    # A text search reaches back through the journal.
    b.find("#filter-text").send_keys(events[5]["raw"])
    b.wait(lambda b: int(events[5]["id"]) in row_ids(b), 20, "the searched record")


def test_open_a_door_and_see_the_input_change(site):
    g = console_gateway(site)
    site.sim(g.port, "--count", "1")
    g.connected(1)
    b = site.browser()
    b.login(g)
    on_page(b, "controllers")
    b.page("doors")
    card = '.door-card[data-door="Front entrance"]'
    b.wait(lambda b: b.find(f"{card} .door-state").get_attribute("data-state") == "locked", 20, "the door locked")
    b.click(f'{card} [data-open]')
    b.click('.dialog [data-action="confirm"]')
    b.wait(lambda b: b.find(f"{card} .door-state").get_attribute("data-state") == "unlocked", 10, "the door unlocked")
    b.wait(lambda b: "Relocks in" in b.text(f"{card} .countdown-text"), 5, "the relay timer")
    left = [float(b.find(f"{card} .countdown").get_attribute("data-left-ms"))]
    b.wait(lambda b: float(b.find(f"{card} .countdown").get_attribute("data-left-ms")) < left[0] - 500, 5,
           "the timer counting down")
    assert "(on)" in b.text(f"{card} dd:last-of-type")
    # The relay's timer (3 s) ends and the lock input follows it: the page sees the door lock again.
    b.wait(lambda b: b.find(f"{card} .door-state").get_attribute("data-state") == "locked", 20, "the door locked again")
    assert "(off)" in b.text(f"{card} dd:last-of-type")
    assert not b.all(f"{card} .countdown")
    opened = [r for r in g.records(kind="audit") if r["raw"] == "door Front entrance opened"]
    assert len(opened) == 1 and opened[0]["actor"] == "operator"


def test_cardholder_form_checks_fields_and_shows_the_apis_messages(site):
    g = console_gateway(site)
    assert g.request("POST", "/cardholders", json={"name": "Ada Lovelace", "cards": [{"number": 1001}]}).status_code == 201
    b = site.browser()
    b.login(g)
    on_page(b, "controllers")
    b.page("cardholders")
    b.wait(lambda b: "Ada Lovelace" in b.text("#holder-rows"), 10, "the cardholder")
    b.click("#add-holder")
    b.find(".card-number").send_keys("12x")
    b.click('.dialog [data-action="save"]')
    # Checked before sending: nothing reaches the gateway.
    b.wait(lambda b: "name is required" in b.text('[data-field="name"] .field-error'), 5, "the name's error")
    assert "whole number" in b.text('[data-field="cards[0].number"] .field-error')
    b.find("#holder-name").send_keys("Grace Hopper")
    retype(b, ".card-number", "1001")
    b.find('.door-row[data-door="Server room"] .door-on').click()
    b.click('.dialog [data-action="save"]')
    # The card is Ada's: the API's answer stands next to the card's field.
    b.wait(lambda b: "belongs to another cardholder" in b.text('[data-field="cards[0].number"] .field-error'), 10,
           "the API's message at the card")
    assert len(g.get("/cardholders").json()["cardholders"]) == 1
    retype(b, ".card-number", "2002")
    b.click('.dialog [data-action="save"]')
    b.wait(lambda b: "Grace Hopper" in b.text("#holder-rows"), 10, "the new cardholder")
    grace = next(c for c in g.get("/cardholders").json()["cardholders"] if c["name"] == "Grace Hopper")
    assert [c["number"] for c in grace["cards"]] == [2002]
    assert [a["door"] for a in grace["access"]] == ["Server room"]
    # Search by number, then by name.
    b.find("#holder-search").send_keys("2002")
    b.wait(lambda b: "Grace Hopper" in b.text("#holder-rows") and "Ada" not in b.text("#holder-rows"), 10,
           "the search by number")
    retype(b, "#holder-search", "lovel")
    b.wait(lambda b: "Ada Lovelace" in b.text("#holder-rows") and "Grace" not in b.text("#holder-rows"), 10,
           "the search by name")
    # Edit: a validity window; then remove.
    retype(b, "#holder-search", "")
    b.wait(lambda b: "Grace Hopper" in b.text("#holder-rows"), 10, "the whole list")
    grace_row = "//tbody[@id='holder-rows']/tr[contains(., 'Grace Hopper')]"
    b.wait(lambda b: b.driver.find_element(By.XPATH, grace_row).click() or True, 10, "a click on the row")
    b.wait(lambda b: b.visible("#holder-until"), 10, "the editor")
    b.driver.execute_script("arguments[0].value = '2030-12-31T18:00'", b.find("#holder-until"))
    b.click('.dialog [data-action="save"]')
    wait_until(lambda: g.get(f"/cardholders/{grace['id']}").json().get("valid_until", "") .startswith("2030-12-31T18:00"),
               10, "the window saved")
    b.wait(lambda b: not b.visible(".dialog"), 10, "the editor closed")
    b.wait(lambda b: b.driver.find_element(By.XPATH, grace_row).click() or True, 10, "a click on the row")
    b.click('.dialog [data-action="remove"]')
    b.click('.dialog [data-action="confirm"]')
    b.wait(lambda b: "Grace Hopper" not in b.text("#holder-rows"), 10, "the cardholder gone")
    assert g.get(f"/cardholders/{grace['id']}").status_code == 404


def test_csv_import_of_200_cards_with_one_bad_line_reports_it(site):
    g = console_gateway(site)
    assert g.request("POST", "/cardholders", json={"name": "Ada Lovelace", "cards": [{"number": 1001}]}).status_code == 201
    lines = ["name,card,doors,valid_until"]
    for i in range(200):
        card = 1001 if i == 120 else 50000 + i   # line 122 holds Ada's card: the gateway refuses it
        lines.append(f"Person {i:03d},{card},Front entrance|Loading bay,2031-01-01T00:00")
    path = os.path.join(site.dir, "cards.csv")
    with open(path, "w") as f:
        f.write("\n".join(lines) + "\n")
    b = site.browser()
    b.login(g)
    on_page(b, "controllers")
    b.page("cardholders")
    b.click("#import-csv")
    b.find("#csv-file").send_keys(path)
    b.wait(lambda b: "200 cardholders" in b.text("#csv-summary"), 10, "the file read")
    b.click('.dialog [data-action="import"]')
    b.wait(lambda b: b.visible("#csv-progress"), 5, "the progress bar")
    b.wait(lambda b: b.visible("#csv-result"), 120, "the report")
    assert b.text("#csv-result") == "199 cardholders added, 1 line failed."
    assert b.find("#csv-progress").get_attribute("aria-valuenow") == "100"
    failed = b.all("#csv-failures tbody tr")
    assert len(failed) == 1 and failed[0].get_attribute("data-line") == "122"
    assert "Person 120" in failed[0].text and "belongs to another cardholder" in failed[0].text
    b.shot("cardholders-import-desktop")
    assert len(g.get("/cardholders").json()["cardholders"]) == 200
    b.click('.dialog [data-action="close"]')
    b.wait(lambda b: "200 cardholders" in b.text("#holder-count"), 10, "the list refreshed")


def test_lost_connection_shows_a_banner_and_the_stream_resumes(site):
    g = console_gateway(site)
    proxy = site.proxy(g.http_port)
    sim = site.sim(g.port, "--count", "1", "--event-interval-ms", "100")
    g.connected(1)
    b = site.browser()
    b.login(g, port=proxy.port)
    on_page(b, "controllers")
    b.page("activity")
    b.wait(lambda b: len(b.all("#activity-rows tr.rec-event")) >= 5, 20, "live events")
    proxy.cut()
    b.wait(lambda b: b.find("#banner").get_attribute("data-state") == "lost", 20, "the lost-connection banner")
    seen = max(row_ids(b))
    # Events go on being journaled while the page is away.
    wait_until(lambda: g.records(kind="event", after=seen), 20, "events while away")
    proxy.restore()
    b.wait(lambda b: b.find("#banner").get_attribute("data-state") == "ok", 30, "the banner's reconnected")
    assert "resumed after record" in b.text("#banner")
    later = g.records(kind="event", after=seen)[5]["id"]
    b.wait(lambda b: later in row_ids(b), 20, "events after the gap")
    sim.stop()
    # Nothing of what came while the page was away is missing, and nothing is shown twice.
    shown = [int(r.get_attribute("data-id")) for r in b.all("#activity-rows tr[data-id]")]
    assert len(shown) == len(set(shown))
    expected = {r["id"] for r in g.records(after=max(0, seen - 20)) if r["kind"] in ("event", "connect", "disconnect")
                and r["id"] <= later}
    assert expected <= set(shown), sorted(expected - set(shown))


def test_cross_site_requests_refused(site):
    g = console_gateway(site)
    site.sim(g.port, "--count", "1")
    g.connected(1)
    origin = f"http://127.0.0.1:{g.http_port}"
    s = requests.Session()
    r = s.post(f"{g.url}/session", json={"token": OPERATOR}, headers={"Origin": origin})
    assert r.status_code == 201, r.text
    csrf = r.json()["csrf"]
    open_url = f"{g.url}/doors/Front entrance/open"
    # A change without the CSRF token, with another's, or from a foreign origin: refused.
    assert s.post(open_url, headers={"Origin": origin}).status_code == 403
    assert s.post(open_url, headers={"Origin": origin, "X-CSRF-Token": "0" * len(csrf)}).status_code == 403
    assert s.post(open_url, headers={"Origin": "http://evil.example", "X-CSRF-Token": csrf}).status_code == 403
    assert s.post(open_url, headers={"Sec-Fetch-Site": "cross-site", "X-CSRF-Token": csrf}).status_code == 403
    # A read from a foreign origin too: the cookie stands for the page only.
    assert s.get(f"{g.url}/cardholders", headers={"Origin": "http://evil.example"}).status_code == 403
    assert not [r for r in g.records(kind="audit") if r["raw"] == "door Front entrance opened"]
    # The same request from the page's own origin with its token goes through.
    r = s.post(open_url, headers={"Origin": origin, "X-CSRF-Token": csrf})
    assert r.status_code == 200, r.text

    # And in a browser: a page of another origin (another port of this host, so the same "site"
    # and the cookie goes along) posts to the gateway after the operator has logged in.
    class Evil(http.server.BaseHTTPRequestHandler):
        def do_GET(self):
            body = (f"<!doctype html><script>fetch('{g.url}/cardholders', {{method: 'POST', credentials: 'include',"
                    "mode: 'no-cors', headers: {'Content-Type': 'text/plain'},"
                    "body: JSON.stringify({name: 'Mallory', cards: [{number: 666}]})})"
                    ".then(() => document.title = 'sent', () => document.title = 'sent')</script>").encode()
            self.send_response(200)
            self.send_header("Content-Type", "text/html")
            self.send_header("Content-Length", str(len(body)))
            self.end_headers()
            self.wfile.write(body)

        def log_message(self, *args):
            pass

    evil = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Evil)
    thread = threading.Thread(target=evil.serve_forever, daemon=True)
    thread.start()
    try:
        b = site.browser()
        b.login(g)
        on_page(b, "controllers")
        b.open(f"http://127.0.0.1:{evil.server_address[1]}/")
        b.wait(lambda b: b.driver.title == "sent", 15, "the foreign page's request")
        assert not [c for c in g.get("/cardholders").json()["cardholders"] if c["name"] == "Mallory"]
    finally:
        evil.shutdown()
        evil.server_close()
        thread.join(timeout=10)


def test_screenshots_of_each_page_at_two_sizes(site):
    # The history at a point a second, 40 of them: the charts fill in a test's time.
    g = console_gateway(site, extra="[console]\nhistory_step_s = 1\nhistory_points = 40\n")
    for body in ({"name": "Ada Lovelace", "cards": [{"number": 1001}], "access": [{"door": "Front entrance"}]},
                 {"name": "Grace Hopper", "cards": [{"number": 2001}, {"number": 2002}],
                  "access": [{"door": "Server room"}, {"door": "Front entrance"}], "valid_until": "2027-06-30T18:00"},
                 {"name": "Alan Turing", "cards": [{"number": 7007}], "enabled": False,
                  "access": [{"door": "Loading bay"}]}):
        assert g.request("POST", "/cardholders", json=body).status_code == 201
    site.sim(g.port, "--count", "2", "--lookup-interval-ms", "700", "--event-interval-ms", "900",
             "--alarm-interval-ms", "2500", "--clock-offset-s", "4")
    g.connected(2)
    b = site.browser(DESKTOP)
    b.open(f"http://127.0.0.1:{g.http_port}/")
    for size, tag in ((PHONE, "phone"), (DESKTOP, "desktop")):
        b.resize(size)
        b.wait(lambda b: b.visible("#login-token"), 30, "the login form")
        b.shot(f"login-{tag}")
    b.login(g)
    on_page(b, "controllers")
    b.wait(lambda b: len(b.all("#controllers-table tr[data-mac] .status-up")) == 2, 30, "two controllers up")
    b.wait(lambda b: all(c.text not in ("", "…") for c in b.all(".cell-model")), 30, "the models")
    # A few points of history for the charts.
    history = wait_until(lambda: len(g.get("/health/history").json()["points"]) >= 30
                         and g.get("/health/history").json(), 60, "30 history points")
    # What the charts draw: the gateway's own count of what it stored and decided, a point a second.
    assert history["step_s"] == 1 and history["points_kept"] == 40
    last = history["points"][-1]
    assert last["controllers_connected"] == 2
    assert any(p["lookups_per_s"] > 0 and p["decision_p50_ms"] is not None for p in history["points"])
    assert all(0.5 < p["seconds"] < 2.5 for p in history["points"][1:])
    for size, tag in ((DESKTOP, "desktop"), (PHONE, "phone")):
        b.resize(size)
        for page in PAGES:
            b.page(page)
            if page == "activity":
                b.wait(lambda b: len(b.all("#activity-rows tr")) >= 10, 30, "some activity")
            elif page == "doors":
                b.wait(lambda b: all(s.get_attribute("data-state") in ("locked", "unlocked")
                                     for s in b.all(".door-state")), 15, "the doors read")
            elif page == "cardholders":
                b.wait(lambda b: "Grace Hopper" in b.text("#holder-rows"), 10, "the cardholders")
                assert "2001, 2002" in b.text("#holder-rows") and "null" not in b.text("#holder-rows")
            elif page == "health":
                b.wait(lambda b: b.all("#main svg path.series"), 30, "the charts' lines")
            path = b.shot(f"{page}-{tag}")
            assert os.path.getsize(path) > 10000, f"{path} looks empty"


def test_session_and_search_apis_name_what_is_wrong(site):
    """What the page stands on, as any client sees it: the login's refusals, a read-only session
    held to its scope, and the journal search's filters, paging and 400s."""
    g = console_gateway(site)
    origin = f"http://127.0.0.1:{g.http_port}"
    login = f"{g.url}/session"
    r = requests.post(login, json={"token": OPERATOR, "remember": True}, headers={"Origin": origin})
    assert r.status_code == 400 and r.json()["field"] == "remember"
    assert requests.post(login, data="{", headers={"Origin": origin}).status_code == 400
    r = requests.post(login, json={"token": OPERATOR}, headers={"Origin": "http://127.0.0.1:1"})
    assert r.status_code == 403 and "Set-Cookie" not in r.headers
    r = requests.post(login, json={"token": "wrong"}, headers={"Origin": origin})
    assert r.status_code == 401 and r.json()["field"] == "token"

    viewer = requests.Session()
    r = viewer.post(login, json={"token": READER}, headers={"Origin": origin})
    assert r.status_code == 201 and r.json()["scope"] == "read"
    csrf = r.json()["csrf"]
    assert viewer.get(f"{g.url}/session").json()["via"] == "session"
    r = viewer.post(f"{g.url}/cardholders", json={"name": "X", "cards": [{"number": 1}]},
                    headers={"Origin": origin, "X-CSRF-Token": csrf})
    assert r.status_code == 403, r.text
    # Refused before its body was read: the connection is not used again, or the body would be
    # taken for the next request.
    assert r.headers["Connection"] == "close"
    # Logging out ends it in the gateway: the same cookie is refused afterwards.
    assert viewer.delete(login, headers={"Origin": origin, "X-CSRF-Token": csrf}).status_code == 204
    assert viewer.get(f"{g.url}/controllers").status_code == 401

    sim = site.sim(g.port, "--count", "2", "--lookup-interval-ms", "20", "--event-interval-ms", "20",
                   "--heartbeat-ms", "200")
    wait_until(lambda: len(g.records(kind="lookup")) >= 100 and len(g.records(kind="alarm")) >= 10, 60,
               "look-ups and heartbeats")
    sim.stop()
    everything = g.records()
    # Paged back with next_before, the search gives every record once, newest first.
    seen, before = [], None
    while True:
        params = {"limit": 37}
        if before:
            params["before"] = before
        page = g.get("/events/search", params=params).json()
        seen += [r["id"] for r in page["records"]]
        before = page["next_before"]
        if before is None:
            break
    assert seen == sorted((r["id"] for r in everything), reverse=True)
    # Filters: a controller's door, heartbeats apart from the other alarms, a piece of the text.
    page = g.get("/events/search", params={"mac": "00:00:02", "door": 1, "kind": "lookup", "limit": 500}).json()
    want = [r["id"] for r in everything if r["kind"] == "lookup" and r["mac"] == "00:00:02"
            and r["fields"].get("door") == 1]
    assert want and [r["id"] for r in page["records"]] == sorted(want, reverse=True)
    beats = g.get("/events/search", params={"kind": "heartbeat", "limit": 500}).json()["records"]
    assert beats and all(r["kind"] == "alarm" and r["fields"]["type"] == "heartbeat" for r in beats)
    others = g.get("/events/search", params={"kind": "alarm", "limit": 500}).json()["records"]
    assert all(r["fields"].get("type") != "heartbeat" for r in others)
    text = everything[-1]["raw"]
    assert everything[-1]["id"] in [r["id"] for r in g.get("/events/search", params={"text": text}).json()["records"]]
    for params, field in (({"limit": 0}, "limit"), ({"limit": 501}, "limit"), ({"before": "x"}, "before"),
                          ({"door": 256}, "door"), ({"kind": "event,nonsense"}, "kind"), ({"mac": "zz"}, "mac"),
                          ({"text": "x" * 201}, "text")):
        r = g.get("/events/search", params=params)
        assert r.status_code == 400 and r.json()["field"] == field, (params, r.text)
