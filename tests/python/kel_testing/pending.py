"""Errors that a call leaves pending although it returns."""


def pending_of(function, *args, **keywords):
    """Type and text of the error that a call leaves pending or raises; None if there is none."""
    try:
        function(*args, **keywords)
        # The interpreter finds the pending error no later than here.
        iter([]).next()
    except Exception as error:
        return type(error), str(error)
