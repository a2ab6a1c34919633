#!/usr/bin/python3
"""share_browser_test.py BUILD_DIR SOURCE_DIR: a recipient in headless chromium (through chromedriver)
opens share links served by share.cgi behind lighttpd (data/lighttpd/local.conf). Screenshots go to
BUILD_DIR/screenshots/. Exit 77 (skipped) only when the browser, its driver or selenium is missing."""
import os, random, shutil, socket, subprocess, sys, tempfile, time

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
    sys.exit(print("chromium, chromedriver or python3-selenium missing: skipped") or 77)
SHOTS = os.path.join(BUILD, "screenshots")
FILE_BYTES = bytes(random.Random(15).getrandbits(8) for _ in range(300 * 1024))
FILE_NAME = 'Annual report <2026> & "notes".bin'
failures = 0


def check(ok, what):
    global failures
    print(("ok   " if ok else "FAIL ") + what)
    failures += not ok
    return ok


def make_appliance(root):
    for ap, data in (("/etc/config/smb.conf", b"[Public]\npath = /share/Public\n"),
                     ("/etc/config/Korvix.conf", b"[System]\nWeb Access Port = 8080\n"),
                     ("/share/Public/docs/" + FILE_NAME, FILE_BYTES), ("/share/Public/Photos/zebra.txt", b"z\n"),
                     ("/share/Public/Photos/beach.jpg", b"holiday photo\n"),
                     ("/share/Public/Photos/Album 2025/first.jpg", b"first\n"), ("/tmp/.keep", b"")):
        os.makedirs(os.path.dirname(root + ap), exist_ok=True)
        with open(root + ap, "wb") as f:
            f.write(data)
    now, own = int(time.time()), ["--creator", "admin", "--host", "127.0.0.1"]
    for args in (["init"], ["add", "LkBrowsFoldr", "/Public/Photos"] + own,
                 ["add", "LkBrowsFile1", "/Public/docs/" + FILE_NAME, "--accesscode", "4711",
                  "--expire", str(now + 86400)] + own,
                 ["add", "LkBrowsOld01", "/Public/Photos/beach.jpg", "--expire", str(now - 3600)] + own):
        subprocess.run([os.path.join(BUILD, "sharelinkctl")] + args, env=dict(os.environ, SHARELINK_ROOT=root),
                       check=True, stdout=subprocess.DEVNULL)


def start_lighttpd(web, root):
    os.makedirs(web + "/htdocs", exist_ok=True)
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        port = s.getsockname()[1]
    env = dict(os.environ, SHARELINK_WEB_PORT=str(port), SHARELINK_WEB_DIR=web, SHARELINK_ROOT=root,
               SHARELINK_CGI_DIR=BUILD, SHARELINK_X_SENDFILE="1")
    server = subprocess.Popen(["lighttpd", "-D", "-f", os.path.join(SOURCE, "data/lighttpd/local.conf")],
                              env=env, stdout=subprocess.DEVNULL, stderr=subprocess.STDOUT)
    for _ in range(200):
        try:
            socket.create_connection(("127.0.0.1", port), 1).close()
            return server, "http://127.0.0.1:%d/share.cgi?ssid=" % port
        except OSError:
            time.sleep(0.05)
    server.kill()
    raise SystemExit("lighttpd did not start; see %s/error.log" % web)


def run(browser, link, downloads):
    shot = lambda name: browser.save_screenshot(os.path.join(SHOTS, name + ".png"))
    body = lambda: browser.find_element(By.TAG_NAME, "body").text
    links = lambda test: [a for a in browser.find_elements(By.TAG_NAME, "a") if test(a)]
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
    check(FILE_NAME in body(), "the right code reaches the file page, name escaped")
    check(not browser.find_elements(By.NAME, "code"), "the file page has no code form")
    shot("file")
    dl = links(lambda a: "dl=1" in (a.get_attribute("href") or ""))
    if check(dl, "the file page has a download link"):
        dl[0].click()
        for _ in range(200):  # until the download is complete
            done = [n for n in os.listdir(downloads) if not n.endswith(".crdownload")]
            if done:
                break
            time.sleep(0.1)
        data = open(os.path.join(downloads, done[0]), "rb").read() if done else b""
        check(data == FILE_BYTES, "the download arrives byte-identical (%d of %d bytes)" % (len(data), len(FILE_BYTES)))
        check(done and done[0].startswith("Annual report"), "the download keeps its name: %r" % done)
    browser.get(link + "LkBrowsFile1")
    check("Annual report" in body(), "the cookie opens the link again without the form")

    browser.get(link + "LkBrowsFoldr")
    text = body()
    check(all(n in text for n in ("Album 2025", "beach.jpg", "zebra.txt")), "the folder link lists its entries")
    check(text.find("Album 2025") < text.find("beach.jpg"), "folders come first")
    shot("folder")
    sub = links(lambda a: a.text.strip().rstrip("/") == "Album 2025")
    if check(sub, "the subfolder is a link"):
        sub[0].click()
        check("first.jpg" in body(), "the subfolder's page lists its file")
        shot("folder-subfolder")
    for ssid, name, words in (("NoSuchLink00", "error-404", ("not", "exist")), ("LkBrowsOld01", "error-410", ("expired",))):
        browser.get(link + ssid)
        check(all(w in body().lower() for w in words), "%s says %s" % (name, " / ".join(words)))
        shot(name)


with tempfile.TemporaryDirectory(prefix="share-browser-", ignore_cleanup_errors=True) as tmp:
    os.makedirs(SHOTS, exist_ok=True)
    os.makedirs(tmp + "/downloads")
    make_appliance(tmp + "/root")
    server, link = start_lighttpd(tmp + "/web", tmp + "/root")
    try:
        opts = webdriver.ChromeOptions()
        opts.binary_location = CHROMIUM
        for flag in ("--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
                     "--disable-background-networking", "--disable-component-update", "--disable-sync",
                     "--disable-dev-shm-usage", "--window-size=412,915", "--user-data-dir=" + tmp + "/profile"):
            opts.add_argument(flag)
        opts.add_experimental_option("prefs", {"download.default_directory": tmp + "/downloads",
                                               "download.prompt_for_download": False})
        browser = webdriver.Chrome(service=Service(DRIVER), options=opts)
        try:
            browser.execute_cdp_cmd("Page.setDownloadBehavior", {"behavior": "allow", "downloadPath": tmp + "/downloads"})
            run(browser, link, tmp + "/downloads")
        finally:
            browser.quit()
    finally:
        server.terminate()
        server.wait()
print("screenshots in " + SHOTS)
sys.exit(1 if failures else 0)
