#!/usr/bin/python3
"""A recipient in a real browser: headless chromium through chromedriver opens
share links served by share.cgi behind lighttpd (data/lighttpd/local.conf).

Usage: share_browser_test.py BUILD_DIR SOURCE_DIR
Screenshots go to BUILD_DIR/screenshots/. Exit 77 (skipped) only when the
browser, its driver or selenium is missing.
"""
import os, random, shutil, socket, subprocess, sys, tempfile, time, urllib.request

SKIP = 77
BUILD, SOURCE = (os.path.abspath(a) for a in sys.argv[1:3])
CHROMIUM, DRIVER = shutil.which("chromium"), shutil.which("chromedriver")
try:
    from selenium import webdriver
    from selenium.webdriver.chrome.service import Service
    from selenium.webdriver.common.by import By
    from selenium.webdriver.common.keys import Keys
except ImportError:
    CHROMIUM = None
if not CHROMIUM or not DRIVER:
    print("chromium, chromedriver or python3-selenium missing: skipped")
    sys.exit(SKIP)

SHOTS = os.path.join(BUILD, "screenshots")
FILE_BYTES = bytes(random.Random(15).getrandbits(8) for _ in range(300 * 1024))


def make_appliance(root):
    def write(ap, data, mode="w"):
        os.makedirs(os.path.dirname(root + ap), exist_ok=True)
        with open(root + ap, mode) as f:
            f.write(data)
    write("/etc/config/smb.conf", "[Public]\npath = /share/Public\n")
    write("/etc/config/Korvix.conf", "[System]\nWeb Access Port = 8080\n")
    os.makedirs(root + "/tmp", exist_ok=True)
    write("/share/Public/docs/Annual report <2026> & \"notes\".bin", FILE_BYTES, "wb")
    write("/share/Public/Photos/beach.jpg", "holiday photo\n")
    write("/share/Public/Photos/zebra.txt", "z\n")
    write("/share/Public/Photos/Album 2025/first.jpg", "first\n")
    env = dict(os.environ, SHARELINK_ROOT=root)
    ctl = os.path.join(BUILD, "sharelinkctl")
    now = int(time.time())
    for args in (["init"],
                 ["add", "LkBrowsFile1", "/Public/docs/Annual report <2026> & \"notes\".bin",
                  "--creator", "admin", "--host", "127.0.0.1", "--accesscode", "4711",
                  "--expire", str(now + 86400)],
                 ["add", "LkBrowsFoldr", "/Public/Photos", "--creator", "admin", "--host", "127.0.0.1"],
                 ["add", "LkBrowsOld01", "/Public/Photos/beach.jpg", "--creator", "admin",
                  "--host", "127.0.0.1", "--expire", str(now - 3600)]):
        subprocess.run([ctl] + args, env=env, check=True, stdout=subprocess.DEVNULL)


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def start_lighttpd(web, root):
    os.makedirs(web + "/htdocs", exist_ok=True)
    env = dict(os.environ, SHARELINK_WEB_PORT=str(free_port()), SHARELINK_WEB_DIR=web,
               SHARELINK_ROOT=root, SHARELINK_CGI_DIR=BUILD, SHARELINK_X_SENDFILE="1")
    server = subprocess.Popen(["lighttpd", "-D", "-f", os.path.join(SOURCE, "data/lighttpd/local.conf")],
                              env=env, stdout=subprocess.DEVNULL, stderr=subprocess.STDOUT)
    base = "http://127.0.0.1:%s" % env["SHARELINK_WEB_PORT"]
    for _ in range(200):
        try:
            urllib.request.urlopen(base + "/", timeout=1)
        except urllib.error.HTTPError:
            return server, base
        except OSError:
            time.sleep(0.05)
            continue
        return server, base
    server.kill()
    raise SystemExit("lighttpd did not start; see %s/error.log" % web)


def start_browser(profile, downloads):
    opts = webdriver.ChromeOptions()
    opts.binary_location = CHROMIUM
    for flag in ("--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
                 "--disable-background-networking", "--disable-component-update", "--disable-sync",
                 "--disable-dev-shm-usage", "--window-size=412,915", "--user-data-dir=" + profile):
        opts.add_argument(flag)
    opts.add_experimental_option("prefs", {"download.default_directory": downloads,
                                           "download.prompt_for_download": False})
    browser = webdriver.Chrome(service=Service(DRIVER), options=opts)
    browser.execute_cdp_cmd("Page.setDownloadBehavior", {"behavior": "allow", "downloadPath": downloads})
    return browser


class Check:
    failures = 0

    def __call__(self, ok, what):
        print(("ok   " if ok else "FAIL ") + what)
        Check.failures += 0 if ok else 1
        return ok


def wait_for_download(folder, seconds=20):
    for _ in range(seconds * 10):
        done = [n for n in os.listdir(folder) if not n.endswith(".crdownload")]
        if done:
            with open(os.path.join(folder, done[0]), "rb") as f:
                return done[0], f.read()
        time.sleep(0.1)
    return None, b""


def run(browser, base, downloads):
    check = Check()
    shot = lambda name: browser.save_screenshot(os.path.join(SHOTS, name + ".png"))
    body = lambda: browser.find_element(By.TAG_NAME, "body").text
    link = base + "/share.cgi?ssid="

    browser.get(link + "LkBrowsFile1")
    codes = browser.find_elements(By.NAME, "code")
    check(len(codes) == 1 and codes[0].get_attribute("type") == "password", "a link with a code shows the form")
    check("Annual report" not in browser.page_source, "the form does not name the file")
    shot("form")
    codes[0].send_keys("1234", Keys.RETURN)
    check(len(browser.find_elements(By.NAME, "code")) == 1, "a wrong code shows the form again")
    check("1234" not in browser.page_source, "the wrong code is not echoed")
    shot("form-wrong-code")
    browser.find_element(By.NAME, "code").send_keys("4711", Keys.RETURN)
    check('Annual report <2026> & "notes".bin' in body(), "the right code reaches the file page, name escaped")
    check(not browser.find_elements(By.NAME, "code"), "the file page has no code form")
    shot("file")
    downloads_links = [a for a in browser.find_elements(By.TAG_NAME, "a") if "dl=1" in (a.get_attribute("href") or "")]
    if check(downloads_links, "the file page has a download link"):
        downloads_links[0].click()
        name, data = wait_for_download(downloads)
        check(data == FILE_BYTES, "the download arrives byte-identical (%d of %d bytes)" % (len(data), len(FILE_BYTES)))
        check(name is not None and name.startswith("Annual report"), "the download keeps its name: %r" % name)
    browser.get(link + "LkBrowsFile1")
    check("Annual report" in body(), "the cookie opens the link again without the form")

    browser.get(link + "LkBrowsFoldr")
    text = body()
    check(all(n in text for n in ("Album 2025", "beach.jpg", "zebra.txt")), "the folder link lists its entries")
    check(text.find("Album 2025") < text.find("beach.jpg"), "folders come first")
    shot("folder")
    sub = [a for a in browser.find_elements(By.TAG_NAME, "a") if a.text.strip().rstrip("/") == "Album 2025"]
    if check(sub, "the subfolder is a link"):
        sub[0].click()
        check("first.jpg" in body(), "the subfolder's page lists its file")
        shot("folder-subfolder")

    for ssid, name, words in (("NoSuchLink00", "error-404", ("not", "exist")), ("LkBrowsOld01", "error-410", ("expired",))):
        browser.get(link + ssid)
        text = body().lower()
        check(all(w in text for w in words), "%s says %s" % (name, " / ".join(words)))
        shot(name)
    return Check.failures


def main():
    os.makedirs(SHOTS, exist_ok=True)
    tmp = tempfile.mkdtemp(prefix="share-browser-")
    server = browser = None
    try:
        root, web, downloads = tmp + "/root", tmp + "/web", tmp + "/downloads"
        os.makedirs(downloads)
        make_appliance(root)
        server, base = start_lighttpd(web, root)
        browser = start_browser(tmp + "/profile", downloads)
        failures = run(browser, base, downloads)
    finally:
        if browser:
            browser.quit()
        if server:
            server.terminate()
            server.wait()
        shutil.rmtree(tmp, ignore_errors=True)
    print("screenshots in " + SHOTS)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
