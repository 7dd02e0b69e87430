"""Makes the picture of the page for the documentation: Picture.py FILE"""

import os
import sys

from BrowserTest import HOST, await_row, await_speaker, new_browser, speakers
from Page import sandbox, wait_for


def main(file):
    with sandbox("--page", KIV_LOG_LEVEL="info") as page:
        browser = new_browser("--force-prefers-reduced-motion", "--hide-scrollbars")
        try:
            browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {"width": 1400, "height": 860, "deviceScaleFactor": 1, "mobile": False})
            browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": [{"name": "prefers-color-scheme", "value": "light"}]})
            browser.get(page.address)
            wait_for(lambda: speakers(browser), "the home")
            page.run(f"{HOST} 2>/dev/null")
            page.run("$KIVCTL start 02:4b:49:56:00:01 02:4b:49:56:00:02 02:4b:49:56:00:03; $KIVCTL tone start 02:4b:49:56:00:a4")
            page.run("$KIV_SANDBOX control fault SetNetSpkVolume '{\"error\": \"org.example.Busy\", \"message\": \"try later\"}'")
            page.run("$KIVCTL --verbose volume set 02:4b:49:56:00:01 30")
            await_speaker(browser, "Kitchen", "test tone")
            wait_for(lambda: browser.execute_script("return blocks.some(block => block.name === 'SetNetSpkVolume' && block.failed)"), "the fault")
            browser.execute_script("""
                const failed = blocks.find(block => block.name === 'SetNetSpkVolume' && block.failed);
                failed.open = true;
                chosen = { block: failed };
                drawRows();""")
            await_row(browser, "check_dbus_connection")
            wait_for(lambda: "means" in browser.execute_script("return document.getElementById('details').textContent"), "the details")
            browser.save_screenshot(os.path.abspath(file))
        finally:
            browser.quit()


main(sys.argv[1])
