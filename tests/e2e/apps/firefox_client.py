#!/usr/bin/env python3
"""Opens pages in Firefox through Marionette and answers the token's PIN dialog.

Marionette is Firefox's remote protocol: JSON messages over TCP, each written as its length in
bytes, a colon and the JSON text. A command is [0, id, name, parameters]; its answer is
[1, id, error, result].

Usage: firefox_client.py MARIONETTE_PORT PIN OUTPUT_FOLDER URL...
Each URL is opened in turn and the text of its page written to OUTPUT_FOLDER/page-N.txt
(N from 1); the texts of the PIN dialogs answered go to OUTPUT_FOLDER/pin-dialogs.txt, one a
line. Firefox is told to quit at the end.
"""

import json
import os
import socket
import sys
import time

class MarionetteError(Exception):
    def __init__(self, error):
        super().__init__(f"{error.get('error')}: {error.get('message')}")


class Marionette:
    def __init__(self, port, timeout=90):
        deadline = time.monotonic() + timeout
        while True:
            try:
                self.sock = socket.create_connection(("127.0.0.1", port), timeout=120)
                break
            except OSError:
                if time.monotonic() > deadline:
                    raise
                time.sleep(0.2)
        self.buffer = b""
        self.next_id = 1
        hello = self._receive()
        if hello.get("applicationType") != "gecko":
            raise RuntimeError(f"not Marionette: {hello}")

    def _receive(self):
        while b":" not in self.buffer:
            self._fill()
        length, _, self.buffer = self.buffer.partition(b":")
        while len(self.buffer) < int(length):
            self._fill()
        text, self.buffer = self.buffer[: int(length)], self.buffer[int(length) :]
        return json.loads(text)

    def _fill(self):
        chunk = self.sock.recv(65536)
        if not chunk:
            raise ConnectionError("Marionette closed the connection")
        self.buffer += chunk

    def command(self, name, parameters=None):
        message_id = self.next_id
        self.next_id += 1
        text = json.dumps([0, message_id, name, parameters or {}]).encode()
        self.sock.sendall(str(len(text)).encode() + b":" + text)
        while True:
            kind, answer_id, error, result = self._receive()
            if kind == 1 and answer_id == message_id:
                break
        if error:
            raise MarionetteError(error)
        return result.get("value") if isinstance(result, dict) and "value" in result else result


# Runs in Firefox's parent process (chrome context): answers every password dialog that opens
# from now on with the PIN, as a user would type it, and keeps the dialogs' texts in a
# preference for the test to read.
PIN_ANSWERER = """
const [pin] = arguments;
Services.prefs.setStringPref("apps.pin-dialogs", "[]");
Services.obs.addObserver(dialog => {
    const ui = dialog.Dialog && dialog.Dialog.ui;
    if (!ui || ui.password1Container.hidden) {
        return;
    }
    const texts = JSON.parse(Services.prefs.getStringPref("apps.pin-dialogs"));
    texts.push(ui.infoBody.textContent);
    Services.prefs.setStringPref("apps.pin-dialogs", JSON.stringify(texts));
    ui.password1Textbox.value = pin;
    ui.button0.click();
}, "common-dialog-loaded");
"""


def load(client, url, timeout=30):
    """The text of the page at url; an error page's text when it fails to load."""
    try:
        # A dialog ends the wait early: the page is then waited for here.
        client.command("WebDriver:Navigate", {"url": url})
    except MarionetteError as error:
        return f"(the page did not load: {error})"
    deadline = time.monotonic() + timeout
    while time.monotonic() < deadline:
        text = client.command("WebDriver:ExecuteScript", {"script": """
            return document.readyState == "complete" && document.documentURI != "about:blank"
                ? document.body.innerText : null;""", "args": []})
        if text is not None:
            return text
        time.sleep(0.2)
    return "(the page did not load in time)"


def main():
    port, pin, folder, urls = int(sys.argv[1]), sys.argv[2], sys.argv[3], sys.argv[4:]
    client = Marionette(port)
    client.command("WebDriver:NewSession", {"pageLoadStrategy": "normal"})
    # The PIN dialog opens while the TLS handshake holds Firefox's socket thread, which also
    # carries this protocol: nothing sent over it is read until the dialog is closed. So the
    # answer is put in place first, through this protocol, and runs inside Firefox.
    client.command("Marionette:SetContext", {"value": "chrome"})
    client.command("WebDriver:ExecuteScript", {"script": PIN_ANSWERER, "args": [pin]})
    client.command("Marionette:SetContext", {"value": "content"})
    for number, url in enumerate(urls, 1):
        text = load(client, url)
        with open(os.path.join(folder, f"page-{number}.txt"), "w") as out:
            out.write(text + "\n")
    client.command("Marionette:SetContext", {"value": "chrome"})
    dialogs = json.loads(client.command("WebDriver:ExecuteScript", {
        "script": "return Services.prefs.getStringPref('apps.pin-dialogs');", "args": []}))
    with open(os.path.join(folder, "pin-dialogs.txt"), "w") as out:
        out.writelines(dialog.replace("\n", " ") + "\n" for dialog in dialogs)
    try:
        client.command("Marionette:Quit", {"flags": ["eForceQuit"]})
    except (MarionetteError, OSError):
        pass


if __name__ == "__main__":
    main()
