"""The package stands on the API model (its copy, which api/generate.py writes and docs.api
checks): every export is a method with the header's parameters. Nothing is loaded."""

import inspect

import zanth
from zanth._model import MODEL


def test_every_export_is_a_method_with_the_headers_parameters():
    assert len(zanth.exports()) == MODEL.export_count == 275
    names = set()
    for e in MODEL.exports.values():
        method = getattr(zanth.Library, e.pyname)
        names.add(e.pyname)
        assert e.decl in method.__doc__
        params = list(inspect.signature(method).parameters)[1:]
        # The inputs in the header's order, then the sizes of output buffers as keywords.
        assert params == [p.pyname for p in e.inputs] + [p.pyname for p in e.sizes], e.name
        assert zanth.find_export(e.name) is e and zanth.find_export(e.pyname) is e
    assert len(names) == 275
    assert zanth.Library.get_dll_version.__name__ == "get_dll_version"
    assert list(inspect.signature(zanth.Library.get_card_record4).parameters)[1:6] == [
        "mac", "card_set_id", "no_format", "card_number", "pin"]
