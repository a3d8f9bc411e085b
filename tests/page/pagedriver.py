#!/usr/bin/python3
"""Drives a headless Chromium for the station's page tests, as a person's browser.

Reads one command per line on standard input and answers each with one JSON line. Between
commands it looks at the page's tiles every 50 ms and notes each change with the monotonic
clock, so a test can set them against the station's own events.

    open URL LANGUAGE      load the page with that Accept-Language
    tiles                  the tiles now: [port, state, status text, serial text]
    changes                every tile change seen: [port, state, status, monotonic seconds]
    counts                 today's counts as the page shows them
    recent                 the rows of the last units' table
    search SERIAL          types the serial, presses Enter, answers the note and the rows
    csv                    clicks the CSV link and answers the file the browser saved
    injected               elements and dialogs that markup from outside would have made
    screenshot PATH
    quit
"""
import json
import os
import select
import sys
import tempfile
import time

from selenium import webdriver
from selenium.common.exceptions import NoAlertPresentException
from selenium.webdriver.chrome.options import Options
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.ui import WebDriverWait

TILES = """return [...document.querySelectorAll('#tiles .tile')].map(t => [t.dataset.port, t.dataset.state,
  t.querySelector('.status').textContent, (t.querySelector('.serial') || {textContent: ''}).textContent]);"""
ROWS = """return [...document.querySelectorAll(arguments[0] + ' tbody tr')].map(r =>
  [...r.cells].map(c => c.textContent));"""

scratch = tempfile.TemporaryDirectory(prefix='pagedriver-')
downloads = os.path.join(scratch.name, 'downloads')
os.makedirs(downloads)
driver = None
seen = {}
changes = []


def start(language):
    global driver
    if driver:
        driver.quit()
    options = Options()
    options.binary_location = '/usr/bin/chromium'
    for argument in ('--headless=new', '--no-sandbox', '--disable-gpu', '--disable-dev-shm-usage',
                     '--window-size=1280,1000', '--lang=' + language,
                     '--user-data-dir=' + os.path.join(scratch.name, 'profile-' + language)):
        options.add_argument(argument)
    options.add_experimental_option('prefs', {'intl.accept_languages': language,
                                              'download.default_directory': downloads,
                                              'download.prompt_for_download': False})
    options.set_capability('goog:loggingPrefs', {'browser': 'ALL'})
    driver = webdriver.Chrome(service=Service('/usr/bin/chromedriver'), options=options)


def look():
    try:
        tiles = driver.execute_script(TILES)
    except Exception:
        return
    now = time.monotonic()
    for port, state, status, _ in tiles:
        if seen.get(port) != (state, status):
            seen[port] = (state, status)
            changes.append([port, state, status, now])


def answer(value):
    sys.stdout.write(json.dumps(value) + '\n')
    sys.stdout.flush()


def command(line):
    word, _, rest = line.partition(' ')
    if word == 'open':
        url, language = rest.split(' ')
        start(language)
        driver.get(url)
        WebDriverWait(driver, 10).until(lambda d: d.execute_script(
            "return document.getElementById('count-flashed').textContent !== '-'"))
        return {'title': driver.title, 'lang': driver.execute_script('return document.documentElement.lang')}
    if word == 'tiles':
        return driver.execute_script(TILES)
    if word == 'changes':
        return changes
    if word == 'counts':
        return {key: driver.find_element(By.ID, 'count-' + key).text
                for key in ('flashed', 'recovered', 'current', 'failed', 'stopped', 'skipped')}
    if word == 'recent':
        return driver.execute_script(ROWS, '#recent')
    if word == 'labels':
        return [node.text for node in driver.find_elements(By.CSS_SELECTOR, '[data-text]')]
    if word == 'search':
        field = driver.find_element(By.ID, 'search-serial')
        field.clear()
        field.send_keys(rest, Keys.ENTER)
        WebDriverWait(driver, 10).until(lambda d: d.find_element(By.ID, 'search-note').is_displayed())
        return {'note': driver.find_element(By.ID, 'search-note').text,
                'rows': driver.execute_script(ROWS, '#search-results')}
    if word == 'csv':
        for name in os.listdir(downloads):
            os.remove(os.path.join(downloads, name))
        driver.find_element(By.ID, 'csv').click()
        target = os.path.join(downloads, 'history.csv')
        deadline = time.monotonic() + 20
        while time.monotonic() < deadline and not os.path.exists(target):
            time.sleep(0.1)
        with open(target, encoding='utf-8', newline='') as saved:
            return saved.read()
    if word == 'injected':
        try:
            alert = driver.switch_to.alert.text
        except NoAlertPresentException:
            alert = None
        made = driver.execute_script(
            "return [...document.querySelectorAll('main b, main img, main script, main iframe')].length")
        severe = [entry['message'] for entry in driver.get_log('browser') if entry['level'] == 'SEVERE']
        return {'alert': alert, 'elements': made, 'severe': severe, 'marker': driver.execute_script(
            'return window.injected === undefined ? null : window.injected')}
    if word == 'screenshot':
        driver.save_screenshot(rest)
        return rest
    raise ValueError('unknown command ' + word)


def main():
    try:
        while True:
            ready, _, _ = select.select([sys.stdin], [], [], 0.05)
            if driver and not ready:
                look()
                continue
            line = sys.stdin.readline()
            if not line or line.strip() == 'quit':
                break
            try:
                answer({'ok': command(line.strip())})
            except Exception as error:  # the test reads what went wrong
                answer({'error': '%s: %s' % (type(error).__name__, error)})
    finally:
        if driver:
            driver.quit()


if __name__ == '__main__':
    main()
