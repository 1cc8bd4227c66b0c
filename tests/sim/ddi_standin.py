#!/usr/bin/env python3
"""A stand-in for a hawkBit server's device API, enough for one device and one deployment.

    ddi_standin.py PORT IMAGE FEEDBACK_FILE

Offers IMAGE to any device of any tenant until a feedback closes the action, serves it, and
appends every feedback (one JSON document a line) to FEEDBACK_FILE. Loopback only.
"""
import hashlib
import json
import sys
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer

ACTION = "7"
ARTIFACT = "update.swu"


class Device(BaseHTTPRequestHandler):
    closed = False

    def base(self):
        # /TENANT/controller/v1/DEVICE
        return "http://%s:%d/%s" % (*self.server.server_address, "/".join(self.path.split("/")[1:5]))

    def send_json(self, body):
        data = json.dumps(body).encode()
        self.send_response(200)
        self.send_header("Content-Type", "application/hal+json")
        self.send_header("Content-Length", str(len(data)))
        self.end_headers()
        self.wfile.write(data)

    def do_GET(self):
        parts = self.path.split("?")[0].split("/")
        if len(parts) == 5:
            links = {} if Device.closed else {
                "deploymentBase": {"href": "%s/deploymentBase/%s?c=1" % (self.base(), ACTION)}}
            self.send_json({"config": {"polling": {"sleep": "00:00:01"}}, "_links": links})
        elif len(parts) >= 7 and parts[5] == "deploymentBase":
            image = self.server.image
            href = "%s/softwaremodules/1/artifacts/%s" % (self.base(), ARTIFACT)
            self.send_json({"id": ACTION, "deployment": {
                "download": "forced", "update": "forced",
                "chunks": [{"part": "os", "version": "1", "name": "stick", "artifacts": [{
                    "filename": ARTIFACT, "size": len(image),
                    "hashes": {name: hashlib.new(name, image).hexdigest()
                               for name in ("sha1", "md5", "sha256")},
                    "_links": {"download-http": {"href": href},
                               "md5sum-http": {"href": href + ".MD5SUM"}}}]}]}})
        elif parts[-1] == ARTIFACT:
            self.send_response(200)
            self.send_header("Content-Type", "application/octet-stream")
            self.send_header("Content-Length", str(len(self.server.image)))
            self.end_headers()
            if self.command == "GET":
                self.wfile.write(self.server.image)
        else:
            self.send_error(404)

    def do_POST(self):
        body = self.rfile.read(int(self.headers.get("Content-Length", 0)))
        if self.path.split("?")[0].endswith("/feedback"):
            feedback = json.loads(body or b"{}")
            with open(self.server.feedback, "a") as out:
                out.write(json.dumps(feedback) + "\n")
            Device.closed = Device.closed or feedback.get("status", {}).get("execution") == "closed"
        self.send_response(200)
        self.send_header("Content-Length", "0")
        self.end_headers()

    do_PUT = do_POST
    # The client asks for the artifact's size first.
    do_HEAD = do_GET

    def log_message(self, *args):
        sys.stderr.write("ddi: " + (args[0] % args[1:]) + "\n")


def main():
    port, image, feedback = sys.argv[1:4]
    server = ThreadingHTTPServer(("127.0.0.1", int(port)), Device)
    with open(image, "rb") as data:
        server.image = data.read()
    server.feedback = feedback
    server.serve_forever()


if __name__ == "__main__":
    main()
