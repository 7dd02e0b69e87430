"""Controls wireless network speakers, for tests. The functions of libkiv-interface-api have their own names here.

help() of a function shows the text of the C++ header: what it does, what it returns and how long it can block. Pass a list of
records for a vector, bytes for data that the function reads, a bytearray of sufficient length for a buffer that it fills, and
a function for a callback. After the call, the list has the vector's new content.

Other threads go on during a call. Callbacks run on the library's monitor thread.
"""

import atexit
import inspect

from ._arguments import Call, converter
from ._own import AwaitEvents, DestroyMessageMonitor, ip, mac
from ._process import refuse_system_bus
from ._types import RECORDS, SCALARS, declared, library, type_of
from .layout import DecodedEvent, Layout, LayoutError
from .sandbox import ControlError, ReceivedCall, Sandbox

__version__ = declared.VERSION

__all__ = [
    "AwaitEvents",
    "ControlError",
    "DecodedEvent",
    "DestroyMessageMonitor",
    "Layout",
    "LayoutError",
    "ReceivedCall",
    "Sandbox",
    "ip",
    "mac",
]


def _export(name, value):
    globals()[name] = value
    __all__.append(name)


def _function(name, result, parameters, documentation):
    function = getattr(library, name)
    function.restype = SCALARS[result]
    if parameters is None:

        # These functions of the library read no argument and do not use the bus.
        def call(*_):
            return function()

    else:
        converters = {parameter: converter(name, parameter, type_) for type_, parameter in parameters}
        signature = inspect.Signature(
            [inspect.Parameter(parameter, inspect.Parameter.POSITIONAL_OR_KEYWORD) for parameter in converters]
        )

        def call(*arguments, **named):
            values = signature.bind(*arguments, **named).arguments
            with Call(values) as this:
                passed = [converters[parameter](value, this) for parameter, value in values.items()]
                for check in this.before:
                    check()
                refuse_system_bus(name)
                answer = function(*passed)
                for step in this.after:
                    step(answer)
                return answer

        call.__signature__ = signature
    call.__name__ = call.__qualname__ = name
    call.__doc__ = documentation
    return call


for _name, _value in declared.CONSTANTS.items():
    _export(_name, _value)
for _name, _value in RECORDS.items():
    _export(_name, _value)
for _name, (_kind, _count) in declared.GLOBALS.items():
    _export(_name, type_of(_kind, _count).in_dll(library, _name))
for _name, _declaration in declared.FUNCTIONS.items():
    _export(_name, _function(_name, *_declaration))


# Ends the monitor thread, because a callback must not run in an interpreter that is being finalized.
atexit.register(DestroyMessageMonitor)
