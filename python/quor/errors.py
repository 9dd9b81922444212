# SPDX-License-Identifier: MIT
"""The errors that quor raises.

Besides these, quor raises Python's own errors where they fit: KeyError
for a name the model does not have, IndexError for a model index the
server does not run, ValueError for a value that cannot be sent (a
negative marking, a step of 0, ...), TypeError for an argument of the
wrong kind, and TimeoutError when wait() or watch() run out of time.
All of these are raised before anything is sent to the server.
"""


# Versions above this are the first bytes of some other protocol.
MAX_PLAUSIBLE_VERSION = 255


class ConnectError(ConnectionError):
    """No steering server could be reached, or the connection broke.

    Raised when connecting fails (nothing listens there, the host is
    unknown, the server does not answer within the timeout) and when a
    request's frames fail halfway; the connection is closed then, since
    the client and the server are out of step. Connect again to go on.
    """


class VersionMismatch(ConnectError):
    """The server speaks another version of the steering protocol.

    Attributes: ``server_version`` (what the server announced; None when
    it announced nothing), ``client_version`` (the version this module
    speaks) and ``where`` ("host:port").
    """

    def __init__(self, where, server_version, client_version, timeout=None):
        self.where = where
        self.server_version = server_version
        self.client_version = client_version
        if not server_version:
            text = (f"the service at {where} announced no steering protocol version"
                    + (f" within {timeout} s" if timeout else "")
                    + "; it does not look like a steering server")
        elif server_version > MAX_PLAUSIBLE_VERSION:
            text = (f"the service at {where} announced {server_version:#x}, which is no "
                    "steering protocol version; it does not look like a steering server")
        else:
            text = (f"the server at {where} speaks steering protocol version "
                    f"{server_version}; this client speaks version {client_version}")
        super().__init__(text)

    def __reduce__(self):
        return (type(self), (self.where, self.server_version, self.client_version))


class Refused(RuntimeError):
    """The server refused a request; ``reason`` holds its words.

    A refused request changes nothing on the server. ``str(error)`` is the
    server's text, for example "start refused: a run is going on (running);
    stop it first, or restart".
    """

    def __init__(self, reason):
        self.reason = reason
        super().__init__(reason)


class RunFailed(RuntimeError):
    """The run ended as failed; ``reason`` holds the server's words.

    Raised by Client.wait() and Client.watch(). The results computed before
    the failure can still be read with Client.results(). ``state`` is the
    final quor.State.
    """

    def __init__(self, reason, state=None):
        self.reason = reason
        self.state = state
        super().__init__(reason or "the run failed")

    def __reduce__(self):
        return (type(self), (self.reason, self.state))


__all__ = ["ConnectError", "VersionMismatch", "Refused", "RunFailed"]
