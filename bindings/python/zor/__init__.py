"""Daemons of the gateway's message bus in Python: serve and call requests, publish and receive events."""
from ._bus import Bus, Timer
from ._errors import Argument, Error, Failed, NoMemory, NotConnected, PeerGone, Refused, Timeout
from ._events import Event, Subscription
from ._values import Deferred, Described, Reply, Request

__all__ = [
    "Argument", "Bus", "Deferred", "Described", "Error", "Event", "Failed", "NoMemory", "NotConnected", "PeerGone",
    "Refused", "Reply", "Request", "Subscription", "Timeout", "Timer",
]
