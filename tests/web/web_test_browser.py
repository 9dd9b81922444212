#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""quor-web's page in a real browser: headless Chromium driven by Selenium
opens the dashboard served by quor-web, attached to quor-simd with the SIR
net. It starts a run and sees the curves grow, moves the infection-rate
slider mid-run and sees the server's parameter change and the curve of the
infected turn, pauses and resumes, downloads the CSV and the PNG, and saves
a screenshot (OUT/dashboard.png). A second browser session on the same page
sees the changes of the first, and the first those of the second.

Usage: web_test_browser.py --simd PATH --web PATH --out DIR
"""
import argparse
import json
import os
import shutil
import subprocess
import sys
import tempfile
import time
import urllib.request

DEADLINE = 30.0  # seconds; far above what a correct run needs

try:
    from selenium import webdriver
    from selenium.webdriver.chrome.service import Service
    from selenium.webdriver.common.by import By
    from selenium.webdriver.common.keys import Keys
except ImportError as error:
    print(f"web_test_browser: python3-selenium is missing ({error}); scripts/setup installs it",
          file=sys.stderr)
    sys.exit(1)


def fail(text):
    raise AssertionError(text)


def eventually(what, check, deadline=DEADLINE):
    """Waits until check() gives a true value, and returns it."""
    end = time.monotonic() + deadline
    while True:
        value = check()
        if value:
            return value
        if time.monotonic() > end:
            fail(f"timed out waiting until {what}")
        time.sleep(0.05)


def start(args):
    """A program that prints 'listening on port N' and maybe more lines."""
    return subprocess.Popen(args, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)


def read_line(process, marker):
    while True:
        line = process.stdout.readline()
        if not line:
            fail(f"{process.args[0]} ended: {process.stderr.read()}")
        if marker in line:
            return line.strip()


class Session:
    """One browser with its own profile and download folder."""

    def __init__(self, url, folder):
        self.downloads = os.path.join(folder, "downloads")
        os.makedirs(self.downloads)
        options = webdriver.ChromeOptions()
        options.binary_location = shutil.which("chromium") or "/usr/bin/chromium"
        for flag in ("--headless", "--no-sandbox", "--disable-gpu", "--disable-quic",
                     "--no-first-run", "--disable-background-networking",
                     "--disable-component-update", "--disable-sync",
                     "--disable-dev-shm-usage", "--window-size=1400,1000",
                     f"--user-data-dir={os.path.join(folder, 'profile')}"):
            options.add_argument(flag)
        options.add_experimental_option("prefs", {
            "download.default_directory": self.downloads,
            "download.prompt_for_download": False,
        })
        driver = shutil.which("chromedriver") or "/usr/bin/chromedriver"
        self.driver = webdriver.Chrome(service=Service(driver), options=options)
        self.driver.execute_cdp_cmd("Browser.setDownloadBehavior",
                                    {"behavior": "allow", "downloadPath": self.downloads})
        self.driver.get(url)

    def find(self, element_id):
        return self.driver.find_element(By.ID, element_id)

    def text(self, element_id):
        return self.find(element_id).text

    def value(self, element_id):
        return self.find(element_id).get_attribute("value")

    def js(self, script):
        return self.driver.execute_script("return " + script)

    def points(self):
        return self.js("quorWeb.pointCount()")

    def series(self, place):
        return self.js(f"quorWeb.series({json.dumps(place)})")

    def type_into(self, element_id, text):
        field = self.find(element_id)
        # Select what is there and type over it; leaving the field sends the
        # change (clear() would send one of its own).
        field.send_keys(Keys.CONTROL + "a")
        field.send_keys(text + Keys.TAB)

    def download(self, name):
        path = os.path.join(self.downloads, name)
        return eventually(f"{name} is downloaded",
                          lambda: path if os.path.exists(path) and os.path.getsize(path) > 0 else None)

    def quit(self):
        self.driver.quit()


def server_state(url):
    with urllib.request.urlopen(url + "api/state", timeout=DEADLINE) as answer:
        return json.load(answer)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--simd", required=True)
    parser.add_argument("--web", required=True)
    parser.add_argument("--out", required=True)
    options = parser.parse_args()

    folder = tempfile.mkdtemp(prefix="quor-web-test-")
    processes, sessions = [], []
    try:
        simd = start([options.simd, "--port", "0"])
        processes.append(simd)
        simd_port = read_line(simd, "listening on port").rsplit(" ", 1)[1]
        web = start([options.web, "--server", f"127.0.0.1:{simd_port}", "--listen", "127.0.0.1:0"])
        processes.append(web)
        read_line(web, "listening on port")
        url = read_line(web, "open http://").split("open ", 1)[1]

        first = Session(url, os.path.join(folder, "first"))
        sessions.append(first)
        # Attach to the SIR net.
        eventually("the models are listed",
                   lambda: "SIR epidemic" in first.js("[...document.querySelectorAll('#model-select option')].map(o => o.value)"))
        first.find("btn-attach").click()
        eventually("the model is shown", lambda: "SIR epidemic: 3 places" in first.text("model-info"))
        eventually("the parameters are shown", lambda: first.value("parameter-beta") == "0.0003")

        # A run of 201 points at 20 points a second: the curves grow.
        first.type_into("speed", "20")
        eventually("the speed is set", lambda: server_state(url)["status"]["speed"] == 20)
        first.find("btn-start").click()
        eventually("the run goes", lambda: first.text("state") == "running")
        seen = eventually("points arrive", lambda: first.points() >= 5 and first.points())
        eventually("the curves grow", lambda: first.points() > seen + 5)

        # Mid-run, while the infected still rise, the infection rate goes to
        # its slider's minimum (0): the server takes it, and the curve of the
        # infected turns down.
        changed_at = eventually("the epidemic is under way", lambda: first.points() >= 40 and first.points())
        if changed_at > 80:
            fail(f"the run went too far ({changed_at} points) before the slider moved")
        infected = first.series("I")
        if not infected[-1] > infected[-11]:
            fail(f"the infected do not rise before the change: {infected[-11:]}")
        slider = first.find("slider-beta")
        slider.send_keys(Keys.HOME)
        # The change reached the server at some point between the key press
        # and the first state that shows it.
        applied_by = eventually("the server has the new infection rate",
                                lambda: (lambda state: state["values"]["parameters"][0] == 0 and
                                         len(state["points"]["t"]))(server_state(url)))
        eventually("the slider's field shows it", lambda: first.value("parameter-beta") == "0")
        eventually("the curve turns", lambda: first.points() > changed_at + 30)
        infected = first.series("I")
        peak = max(range(len(infected)), key=lambda i: infected[i])
        if not (changed_at - 2 <= peak <= applied_by + 3 and infected[-1] < infected[peak] * 0.9):
            fail(f"the infected did not turn at the change (points {changed_at} to {applied_by}, "
                 f"peak at {peak}): {infected[changed_at - 3:applied_by + 3]} ... {infected[-1]}")

        # Pause and resume.
        first.find("btn-pause").click()
        eventually("the run pauses", lambda: first.text("state") == "paused")
        paused_at = first.points()
        time.sleep(0.5)
        if first.points() != paused_at:
            fail("points arrive while the run is paused")
        first.find("btn-resume").click()
        eventually("the run goes on", lambda: first.text("state") == "running")
        eventually("the run finishes", lambda: first.text("state") == "finished")
        eventually("every point is plotted", lambda: first.points() == 201)
        if first.js("document.getElementById('progress').value") != 100:
            fail("the progress bar is not full at the end")

        # The results as CSV and the plot as PNG.
        first.find("btn-csv").click()
        with open(first.download("results.csv")) as csv:
            lines = csv.read().splitlines()
        if lines[0] != "time,S,I,R" or len(lines) != 202 or not lines[-1].startswith("50,"):
            fail(f"unexpected CSV: {lines[:2]} ... {lines[-1:]} ({len(lines)} lines)")
        first.find("btn-png").click()
        with open(first.download("SIR epidemic.png"), "rb") as png:
            if png.read(8) != b"\x89PNG\r\n\x1a\n":
                fail("the plot's download is not a PNG")

        # The picture of the README.
        os.makedirs(options.out, exist_ok=True)
        first.driver.save_screenshot(os.path.join(options.out, "dashboard.png"))

        # A second session sees the same run and the first one's changes,
        # and the first sees the second's.
        second = Session(url, os.path.join(folder, "second"))
        sessions.append(second)
        eventually("the second session shows the model",
                   lambda: "SIR epidemic: 3 places" in second.text("model-info"))
        eventually("the second session shows the run", lambda: second.points() == 201)
        eventually("the second session shows the new infection rate",
                   lambda: second.value("parameter-beta") == "0")
        first.type_into("speed", "50")
        eventually("the second session sees the first's speed", lambda: second.value("speed") == "50")
        second.type_into("parameter-gamma", "0.2")
        eventually("the first session sees the second's recovery rate",
                   lambda: first.value("parameter-gamma") == "0.2")
        second.find("btn-reset-parameters").click()
        eventually("the first session sees the reset", lambda: first.value("parameter-beta") == "0.0003")
        second.find("btn-restart").click()
        eventually("the first session sees the new run", lambda: 0 < first.points() < 201)
        eventually("the new run finishes in both", lambda: first.points() == 201 and second.points() == 201)
        # A refused request shows beside the control that caused it.
        second.type_into("marking-S", "-5")
        eventually("the refusal is shown beside the field",
                   lambda: second.text("refusal-marking-S") != "")
        print("web_test_browser: passed")
        return 0
    finally:
        for session in sessions:
            try:
                session.quit()
            except Exception:  # the browser may be gone already
                pass
        for process in processes:
            process.terminate()
            try:
                process.wait(timeout=10)
            except subprocess.TimeoutExpired:
                process.kill()
        shutil.rmtree(folder, ignore_errors=True)


if __name__ == "__main__":
    try:
        sys.exit(main())
    except AssertionError as error:
        print(f"web_test_browser: FAILED: {error}", file=sys.stderr)
        sys.exit(1)
