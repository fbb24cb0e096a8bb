"""The exceptions of the package: a library result that the export's rule calls a failure, and
arguments that don't fit the model (raised before anything is called)."""

from ._model import MODEL


def result_name(code):
    """"kNotConnected" for a library result; otherwise what kind of value `code` is."""
    known = MODEL.results.get(code)
    if known:
        return known[0]
    if code == 0:
        return "ok"
    return "positive" if code > 0 else "controller result"


def result_meaning(code):
    known = MODEL.results.get(code)
    if known:
        return known[1]
    if code == 0:
        return "success"
    if code > 0:
        return ("a positive value: the controller's own success value where the command's rule "
                "allows it, otherwise a system (socket or thread) error number")
    return "the controller's own negative result"


class ZanthError(Exception):
    """A result that the export's success rule calls a failure.

    ``code`` is the result as the library returned it, ``name`` its name (``kNotConnected``,
    or ``controller result`` for a controller's own negative value) and ``meaning`` what it
    means; ``export`` is the export that returned it."""

    def __init__(self, export, code):
        self.export = export
        self.code = code
        self.name = result_name(code)
        self.meaning = result_meaning(code)
        super().__init__(f"{export}: {code} {self.name}: {self.meaning}")

    def __reduce__(self):
        return (type(self), (self.export, self.code))


class _ArgumentProblem:
    def _init(self, export, param, why):
        self.export = export
        self.param = param
        self.why = why
        where = f"{export}: {param}" if param else export
        return f"{where}: {why}"


class ArgumentTypeError(TypeError, _ArgumentProblem):
    """An argument of the wrong type, a missing or unknown one, or an output given as an
    argument. Nothing was called. ``param`` is the header's name of the parameter."""

    def __init__(self, export, param, why):
        super().__init__(self._init(export, param, why))


class ArgumentValueError(ValueError, _ArgumentProblem):
    """An argument outside the model's bounds: a number out of range, a text that doesn't
    match its pattern, holds ';' where the message would split on it, is too long or empty.
    Nothing was called. ``param`` is the header's name of the parameter."""

    def __init__(self, export, param, why):
        super().__init__(self._init(export, param, why))


class UnknownExportError(LookupError):
    """A name that is no export; ``suggestions`` holds the closest names."""

    def __init__(self, name, suggestions):
        self.name = name
        self.suggestions = list(suggestions)
        text = f"no export named {name!r}"
        if self.suggestions:
            text += "; did you mean " + ", ".join(self.suggestions) + "?"
        super().__init__(text)
