"""The page in a real browser, without a screen: by keyboard, in dark colours, on a phone, for those who cannot see it.

Usage: browser_test.py MSGSVR ZORWEB PEER; exit status 77 where there is no browser.
"""
import re
import os
import signal
import sys
import unittest

from bus import Bus, until

PROGRAMS = dict(zip(("msgsvr", "zorweb", "peer"), sys.argv[1:4]))
BROWSER, DRIVER = "/usr/bin/chromium", "/usr/bin/chromedriver"
try:
    from selenium import webdriver
    from selenium.webdriver.chrome.service import Service
    from selenium.webdriver.common.action_chains import ActionChains
    from selenium.webdriver.common.keys import Keys
except ImportError:
    webdriver = None

# What an assistive technology needs, and what eyes need: names of controls, one main part, contrast of texts.
ACCESSIBILITY = r"""
const problems = [];
const visible = (e) => e.getClientRects().length > 0;
for (const e of document.querySelectorAll("a, button, input, [role=button]")) {
  const label = e.getAttribute("aria-label") || e.closest("label")?.textContent.trim() || e.textContent.trim()
    || document.querySelector(`label[for="${e.id}"]`)?.textContent;
  if (visible(e) && !label) problems.push(`no name: ${e.outerHTML}`);
}
for (const role of ["header", "nav", "main"]) if (document.querySelectorAll(role).length !== 1) problems.push(`${role} is not there once`);
if (document.querySelectorAll("h1").length !== 1 || !document.documentElement.lang) problems.push("no heading, or no language");
for (const image of document.images) if (!image.hasAttribute("alt")) problems.push("an image without a text");
const ids = [...document.querySelectorAll("[id]")].map((e) => e.id);
if (new Set(ids).size !== ids.length) problems.push("an id twice");
const rgb = (text) => { const m = text.match(/[\d.]+/g)?.map(Number); return m && (m[3] ?? 1) > 0 ? m : null; };
const light = (c) => c.slice(0, 3).map((v) => v / 255).map((v) => (v <= 0.04045 ? v / 12.92 : ((v + 0.055) / 1.055) ** 2.4))
  .reduce((sum, v, i) => sum + v * [0.2126, 0.7152, 0.0722][i], 0);
const behind = (e) => {
  const box = e.closest("g")?.querySelector("rect");
  if (box) return rgb(getComputedStyle(box).fill);
  for (; e; e = e.parentElement) { const c = rgb(getComputedStyle(e).backgroundColor); if (c) return c; }
  return [255, 255, 255];
};
const walker = document.createTreeWalker(document.body, NodeFilter.SHOW_TEXT);
for (let node = walker.nextNode(); node; node = walker.nextNode()) {
  const e = node.parentElement;
  if (!node.data.trim() || !visible(e) || e.closest("script")) continue;
  const style = getComputedStyle(e);
  const [a, b] = [light(rgb(e.namespaceURI.endsWith("svg") ? style.fill : style.color)), light(behind(e))].sort((x, y) => y - x);
  const contrast = (a + 0.05) / (b + 0.05);
  if (contrast < 4.5) problems.push(`contrast ${contrast.toFixed(2)}: ${node.data.trim()}`);
}
return problems;
"""
VIOLATIONS = "addEventListener('securitypolicyviolation', (e) => (window.violations ??= []).push(e.violatedDirective));"


class Page(unittest.TestCase):
    def setUp(self):
        self.bus = Bus(PROGRAMS, "login = none\n")
        self.addCleanup(self.bus.close)
        still = self.bus.peer("still", "idle")
        still.send_signal(signal.SIGSTOP)
        for name, other in (("asker", "still"), ("left", "right"), ("right", "left")):
            self.bus.running[name] = self.bus.start(name, [PROGRAMS["peer"], "ask", name, other], "")
        self.bus.peer("sink", "idle")
        self.bus.start("talker", [PROGRAMS["peer"], "talk", "talker", "sink", "0x4B05", "20"], "")

    def start(self, view="bus", width=1280, height=1000, dark=False):
        options = webdriver.ChromeOptions()
        options.binary_location = BROWSER
        for argument in ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--hide-scrollbars",
                         f"--user-data-dir={self.bus.root}/browser{width}{dark}{view}"):
            options.add_argument(argument)
        self.page = webdriver.Chrome(service=Service(DRIVER), options=options)
        self.addCleanup(self.page.quit)
        size = {"width": width, "height": height, "deviceScaleFactor": 1, "mobile": False}
        self.page.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", size)
        if dark:
            colours = {"features": [{"name": "prefers-color-scheme", "value": "dark"}]}
            self.page.execute_cdp_cmd("Emulation.setEmulatedMedia", colours)
        self.page.execute_cdp_cmd("Page.addScriptToEvaluateOnNewDocument", {"source": VIOLATIONS})
        self.page.get(f"http://127.0.0.1:{self.bus.port}/#{view}")

    def open(self, *what, **how):
        self.start(*what, **how)
        self.live()

    def live(self):
        until("the page is live", lambda: self.script("document.querySelector('#state')?.textContent") == "live")

    def script(self, expression):
        return self.page.execute_script("return " + expression)

    def text(self, selector):
        return self.script(f"[...document.querySelectorAll({selector!r})].map((e) => e.textContent).join(' ')")

    def go(self, view):
        self.page.execute_script(f"location.hash = {view!r}")
        until(view, lambda: self.script(f"!document.querySelector('#view-{view}').hidden"))

    def shoot(self, name):
        if "ZORWEB_SCREENSHOTS" in os.environ:
            self.page.save_screenshot(f"{os.environ['ZORWEB_SCREENSHOTS']}/{name}.png")

    def check(self):
        self.assertEqual(self.page.execute_script(ACCESSIBILITY), [])
        self.assertEqual(self.script("window.violations ?? []"), [])

    def test_shows_what_is_the_matter_and_opens_a_daemon_by_keyboard(self):
        self.open()
        until("the stopped one", lambda: "stopped" in self.text(".node.bad[data-name=still]"))
        until("the cycle", lambda: len(self.script("[...document.querySelectorAll('.wait.cycle')]")) == 2)
        until("who talks", lambda: re.search(r"\d/s", self.text(".tag")))
        name = lambda: self.script("document.activeElement.dataset?.name ?? ''")
        for _ in range(40):
            ActionChains(self.page).send_keys(Keys.TAB).perform()
            if name() == "still":
                break
        self.assertEqual(name(), "still")
        ActionChains(self.page).send_keys(Keys.ENTER).perform()
        until("its detail", lambda: "asker waits for it" in self.text("#detail-body"))
        self.assertEqual(self.script("document.activeElement.id"), "h-detail")
        self.check()
        ActionChains(self.page).send_keys(Keys.ESCAPE).perform()
        self.assertEqual(name(), "still")
        self.go("waits")
        until("the chain", lambda: re.search(r"asker.*still", self.text(".chain")) and "a cycle" in self.text("#waits"))
        self.check()
        self.go("traffic")
        until("messages", lambda: "talker" in self.text("#traffic td"))
        self.page.execute_script("document.querySelector('#traffic-daemon').value = 'nobody'")
        self.page.execute_script("document.querySelector('#traffic-form').requestSubmit()")
        until("the filter", lambda: self.text("#traffic td") == "" and self.text("#traffic-note").startswith("0 "))
        for view in ("rates", "logs", "losses"):
            self.go(view)
            self.check()

    def test_is_readable_in_the_dark_and_on_a_phone(self):
        for dark, width in ((True, 1280), (False, 360), (True, 360)):
            self.open(width=width, dark=dark)
            until("daemons", lambda: "stopped" in self.text(".node.bad"))
            background = self.script("getComputedStyle(document.body).backgroundColor")
            brightness = sum(int(each) for each in re.findall(r"\d+", background)[:3])
            self.assertEqual(brightness < 384, dark)
            for view in ("bus", "rates", "waits", "traffic", "logs", "losses"):
                self.go(view)
                self.assertLessEqual(self.script("document.documentElement.scrollWidth"), width, view)
                self.check()
            self.page.quit()

    def test_logs_in_with_the_form(self):
        self.bus.end("zorweb")
        self.bus.web()
        with open(f"{self.bus.root}/token", encoding="utf-8") as file:
            token = file.read().strip()
        self.start()
        for text in ("wrong", token):
            until("the form", lambda: self.script("document.querySelector('#token')"))
            self.page.execute_script("document.querySelector('#token').value = arguments[0]", text)
            self.page.execute_script("document.querySelector('form').requestSubmit()")
            if text == "wrong":
                until("a refusal", lambda: self.script("document.querySelector('#wrong')?.getClientRects().length"))
        self.live()


if __name__ == "__main__":
    if webdriver is None or not os.path.exists(BROWSER) or not os.path.exists(DRIVER):
        print("skipped: no Chromium with its driver and python3-selenium on this machine")
        sys.exit(77)
    unittest.main(argv=sys.argv[:1], warnings="ignore")
