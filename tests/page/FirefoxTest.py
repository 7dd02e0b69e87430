"""Runs tests of the page in Firefox, too."""

import os

import pytest
from BrowserTest import (  # noqa: F401: pytest runs the tests that it finds here
    _page,
    await_row,
    await_speaker,
    press,
    states,
    test_a_bus_that_goes_is_seen_and_comes_back,
    test_a_fault_is_pressed_and_seen,
    test_a_lost_server_is_seen_and_comes_back,
    test_a_reload_shows_the_same,
    test_names_are_text,
    test_speakers_that_play_test_and_change_are_seen,
    test_the_hands_are_commands,
    test_the_home_is_as_the_tour_leaves_it,
)
from Firefox import Firefox
from Page import wait_for


@pytest.fixture(scope="module", name="driver")
def _driver():
    started = Firefox()
    yield started
    started.quit()


@pytest.fixture(name="browser")
def _browser(driver):
    yield driver
    driver.get("about:blank")


@pytest.mark.parametrize("theme", ["light", "dark"])
def test_a_theme_is_followed(page, browser, theme):
    browser.use_theme(theme)
    shade = "return getComputedStyle(document.body).backgroundColor.match(/\\d+/g).map(Number)[0]"
    wait_for(lambda: (browser.execute_script(shade) < 128) == (theme == "dark"), f"the {theme} theme")
    assert browser.execute_script("return document.documentElement.scrollWidth - innerWidth") <= 0


def test_the_page_is_kept_as_one_file(page, browser):
    page.run("$KIVCTL name 02:4b:49:56:00:01 '</script><i>x</i>'; $KIVCTL stop --type 8")
    await_row(browser, "StopNetworkSpeaker(8)")
    await_speaker(browser, "</script><i>x</i>")
    press(browser, "#save-html")
    file = os.path.join(browser.downloads(), "kiv-sandbox.html")
    wait_for(lambda: os.path.exists(file) and os.path.getsize(file), "the file")
    browser.get(f"file://{file}")
    await_row(browser, "StopNetworkSpeaker(8)")
    await_speaker(browser, "</script><i>x</i>")
    assert "Recording saved from a page" in states(browser)
