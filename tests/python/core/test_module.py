"""The module's entry, its namespace, and its small functions."""

import ctypes
import sys
import unittest

import _Kel
import acme
import odd
import kel_failures
import kel_throws  # declares the types of Throws::
from kel_testing import TestCase, in_child

FUNCTIONS = {
    "trace_h": "Trace a message.",
    "trace_ht": "Trace a message with a tag.",
    "setproctitle": "Set the process title.",
    "escapedTraceString": "Escape a string for tracing or logging.",
    "proctitle": "Return the process title.",
    "kelNowToLinuxMonoTime":
        "Convert Kel.now() value to Linux monotonic time without SSO time delta.",
    "traceLineSuppressed": "Determine if a tracing level is currently suppressed.",
    "traceTagSuppressed": "Determine if a tracing tag is currently suppressed.",
    "acquireActivityLock": "Acquire the global activity lock.",
    "releaseActivityLock": "Release the global activity lock.",
    "activityLockOwner": "Return the owner of the activity lock.",
    "timedAcquireActivityLock": "Try to acquire the global activity lock.",
    "enableThreadSafePointers": "Enable atomic smart pointers.",
    "singleton": "Look up a singleton by type name.",
    "handle": "Create a PyObject handle.",
    "newNotifiee": "Create a new notifiee.",
    "typeNode": "Return the Kel::KelType object with the specified name.",
    "pyType": "Return the Python type object for the specified Kel::KelType.",
    "nonConst": "Return a mutable copy of the specified value.",
    "const": "Return an immutable copy of the specified value.",
    "nonConstPtr": "Return a non-const pointer to the specified PtrInterface object.",
    "constPtr": "Return a const pointer to the specified PtrInterface object.",
    "isConst": "Return True if the kelc-Python object is const.",
    "entityFuture": "Create an EntityFuture object.",
    "isValue": "Return True if the argument is an instance of a value type.",
    "isCollection": "Return True if the argument is a Collection object.",
    "isFunction": "Return True if the argument is a Function object.",
    "isEntityFuture": "Return True if the argument is an EntityFuture object.",
    "isFailedMount": "Return True if the argument is a FailedMount object.",
    "addressOf": "Return the address of the object as an integer.",
    "hashOf":
        "Return the hash of a kelc-Python object.  Note that this works even if the argument is a "
        "non-const value object.",
    "attributeAccessorCount":
        "Return the number of times any kelc attribute has been accessed from Python.",
    "newEntityHookIs":
        "Register a function to be called from Kel::Dir::newEntity(), with the same three "
        "arguments (dir, typeName, instanceName) that are passed to that call, before the call to "
        "Kel::Dir::createEntity().",
    "newInstanceHookIs":
        "Register a function to be called from 'Kel.newInstance' or 'Kel.Value', or when calling "
        "a kelc-Python type object, before instantiating the C++ object.  It is passed one "
        "argument, the kelc-Python type object.",
    "getitemHookIs":
        "Register a function to be called from the '__getitem__' method (but not the "
        "'getRawEntry' or 'get' methods) of a kelc-Python collection object, with the same two "
        "arguments (coll, key) that are passed to that call, before the lookup in the underlying "
        "collection.",
    "convertEntityToFailedMount": "Convert a Kel::Entity to a FailedMount.",
    "demangle": "demangle a C++ mangled name",
    "gnmiJsonString": "Return gnmiJsonString representation",
    "pythonForkHandlersRegistered": "Indicate python-level fork handlers are registered",
    "atforkPrepare": "we are preparing to fork",
}

NO_ARGUMENTS = ["acquireActivityLock", "releaseActivityLock", "activityLockOwner",
                "enableThreadSafePointers", "attributeAccessorCount",
                "pythonForkHandlersRegistered", "atforkPrepare", "proctitle"]
ONE_ARGUMENT = ["nonConst", "const", "nonConstPtr", "constPtr", "isConst", "isValue",
                "isCollection", "isFunction", "isEntityFuture", "isFailedMount", "addressOf",
                "hashOf", "handle", "newEntityHookIs", "newInstanceHookIs", "getitemHookIs",
                "convertEntityToFailedMount"]

HOOKS = ["newEntityHook_", "newInstanceHook_", "getitemHook_"]

library = ctypes.PyDLL(_Kel.__file__)


class Hostile(object):
    """What asks about it by its attributes fails."""

    def __getattribute__(self, name):
        raise ValueError(name)

    def __repr__(self):
        raise ValueError("repr")


class OldStyle:
    pass


ANYTHING = [None, 5, 2 ** 70, 1.5, "text", u"text", b"\0", (), [], {}, object, object(), type,
            Hostile(), OldStyle, OldStyle(), _Kel, _Kel.Backtrace, _Kel.isValue, acme.Size,
            type(acme.Size), acme.Size.kelType, NotImplemented, Ellipsis]


class Namespace(unittest.TestCase):

    def test_every_function_stands_with_its_doc_string(self):
        for name, doc in FUNCTIONS.items():
            self.assertEqual(getattr(_Kel, name).__doc__, doc, name)

    def test_the_module_tells_what_it_is_for(self):
        self.assertEqual(_Kel.__doc__, "Module providing access to Kel types")

    def test_it_shows_the_type_Backtrace_and_no_other(self):
        types = [name for name in dir(_Kel) if isinstance(getattr(_Kel, name), type)]
        self.assertEqual(types, ["Backtrace"])
        self.assertIs(type(kel_failures.backtrace(1)), _Kel.Backtrace)
        self.assertNotIn("KelType", dir(_Kel))

    def test_it_holds_its_40_functions_beside_that(self):
        names = set(name for name in dir(_Kel) if not name.startswith("__")) - set(["Backtrace"])
        self.assertEqual(names, set(FUNCTIONS))
        self.assertEqual(len(names), 40)
        for name in names:
            self.assertIs(type(getattr(_Kel, name)), type(len), name)

    def test_functions_without_arguments_refuse_one(self):
        for name in NO_ARGUMENTS:
            with self.assertRaises(TypeError) as caught:
                getattr(_Kel, name)(1)
            self.assertEqual(str(caught.exception), "%s() takes no arguments (1 given)" % name)

    def test_functions_of_one_object_refuse_none_and_two(self):
        for name in ONE_ARGUMENT:
            for args in (), (1, 2):
                with self.assertRaises(TypeError) as caught:
                    getattr(_Kel, name)(*args)
                self.assertEqual(str(caught.exception),
                                 "%s() takes exactly one argument (%d given)" % (name, len(args)))

    def test_parsed_functions_name_themselves_in_refusals(self):
        for name, count in (("typeNode", "exactly 1 argument"), ("pyType", "exactly 1 argument"),
                            ("timedAcquireActivityLock", "exactly 1 argument"),
                            ("entityFuture", "exactly 2 arguments")):
            with self.assertRaises(TypeError) as caught:
                getattr(_Kel, name)()
            self.assertEqual(str(caught.exception), "%s() takes %s (0 given)" % (name, count))

    def test_demangle_names_no_function_in_refusals(self):
        with self.assertRaises(TypeError) as caught:
            _Kel.demangle()
        self.assertEqual(str(caught.exception), "function takes exactly 1 argument (0 given)")


class StaticTypes(unittest.TestCase):

    def types(self):
        item = acme.Item("one", 1)
        return {
            "_Kel.KelType": (type(acme.Size.kelType), "Wraps a Kel::KelType"),
            "_Kel.KelAttr": (type(acme.Size.kelType.valAttr), "Wraps a Kel::KelAttr"),
            "_Kel.Attribute":
                (type(acme.Size.__dict__["value"]), "Descriptor for kelc-Python attributes."),
            "_Kel.Function": (type(item.resize), "kelc-Python function attribute."),
            "_Kel.Backtrace": (_Kel.Backtrace, "Wraps a Kel::Backtrace"),
        }

    def test_have_their_names_and_doc_strings(self):
        for name, (cls, doc) in self.types().items():
            self.assertEqual("%s.%s" % (cls.__module__, cls.__name__), name)
            self.assertEqual(cls.__doc__, doc)

    def test_have_the_default_flags_without_that_of_a_base_type(self):
        is_base_type = 1 << 10
        metaclass = type(acme.Size)
        for cls in [metaclass] + [cls for cls, _ in self.types().values()]:
            self.assertEqual(cls.__flags__ & 0x201eb, 0x201eb, cls)
            self.assertEqual(cls.__flags__ & is_base_type, 0, cls)

    def test_are_no_bases(self):
        for name, (cls, _) in self.types().items():
            with self.assertRaises(TypeError) as caught:
                type("Derived", (cls,), {})
            self.assertIn("type '%s' is not an acceptable base type" % name, str(caught.exception))

    def test_have_no_constructor(self):
        for name, (cls, _) in self.types().items():
            with self.assertRaises(TypeError) as caught:
                cls()
            self.assertEqual(str(caught.exception), "cannot create '%s' instances" % name)

    def test_the_metaclass_has_its_name(self):
        metaclass = type(acme.Size)
        self.assertEqual((metaclass.__module__, metaclass.__name__), ("_Kel", "Type"))
        self.assertEqual(metaclass.__base__, type)
        self.assertIs(type(metaclass), type)


class Entry(unittest.TestCase):

    def test_a_second_initialisation_ends_the_process(self):
        outcome = in_child("""
            import ctypes, _Kel
            ctypes.PyDLL(_Kel.__file__).init_Kel()
            print "lived on"
            """).expect(-6)
        self.assertEqual(outcome.out, "")
        self.assertIn("assertion failed: !printBacktraceFn (", outcome.err)

    def test_the_hooks_are_null_at_first(self):
        in_child("""
            import ctypes, _Kel
            library = ctypes.PyDLL(_Kel.__file__)
            for name in %r:
                assert ctypes.c_void_p.in_dll(library, name).value is None, name
            """ % HOOKS).expect()

    def test_a_reload_gives_the_same_functions(self):
        in_child("""
            import sys, _Kel
            before = _Kel.isValue
            del sys.modules["_Kel"]
            import _Kel
            assert _Kel.isValue is before
            """).expect()


class Hooks(TestCase):

    def setters(self):
        return [(getattr(_Kel, name + "HookIs"), name + "Hook_")
                for name in ("newEntity", "newInstance", "getitem")]

    def hook(self, name):
        return ctypes.c_void_p.in_dll(library, name).value

    def test_None_without_a_hook_returns_None_and_leaves_null(self):
        for setter, name in self.setters():
            none = sys.getrefcount(None)
            self.assertIs(setter(None), None)
            self.assertIs(self.hook(name), None)
            self.assertLess(abs(sys.getrefcount(None) - none), 5)

    def test_a_hook_is_held_by_one_reference(self):
        for setter, name in self.setters():
            function = lambda *args: None
            before = sys.getrefcount(function)
            self.assertIs(setter(function), None)
            self.assertEqual(self.hook(name), id(function))
            self.assertEqual(sys.getrefcount(function), before + 1)
            setter(function)
            self.assertEqual(sys.getrefcount(function), before + 1)
            setter(None)
            self.assertIs(self.hook(name), None)
            self.assertEqual(sys.getrefcount(function), before)

    def test_another_hook_takes_the_place(self):
        for setter, name in self.setters():
            first, second = (lambda *args: None), (lambda *args: None)
            before = sys.getrefcount(first)
            setter(first)
            setter(second)
            self.assertEqual(self.hook(name), id(second))
            self.assertEqual(sys.getrefcount(first), before)
            setter(None)

    def test_what_cannot_be_called_is_taken_too(self):
        for setter, name in self.setters():
            value = object()
            self.assertIs(setter(value), None)
            self.assertEqual(self.hook(name), id(value))
            setter(None)

    def test_a_hook_that_sets_another_as_it_goes_leaves_one_reference_a_hook(self):
        class Setter(object):
            def __del__(self):
                _Kel.newInstanceHookIs(meanwhile)

        meanwhile, last = (lambda cls: None), (lambda cls: None)
        before = sys.getrefcount(meanwhile), sys.getrefcount(last)
        _Kel.newInstanceHookIs(Setter())
        _Kel.newInstanceHookIs(last)
        self.assertEqual(self.hook("newInstanceHook_"), id(last))
        _Kel.newInstanceHookIs(None)
        self.assertEqual((sys.getrefcount(meanwhile), sys.getrefcount(last)), before)


class AccessorCount(unittest.TestCase):

    def test_a_fresh_process_has_counted_nothing(self):
        outcome = in_child("import _Kel; print repr(_Kel.attributeAccessorCount())").expect()
        self.assertEqual(outcome.out, "0L\n")

    def test_a_read_of_an_attribute_counts_one(self):
        size = acme.Size(3)
        before = _Kel.attributeAccessorCount()
        self.assertEqual(size.value, 3)
        after = _Kel.attributeAccessorCount()
        self.assertEqual(after - before, 1)
        self.assertIs(type(after), long)


class Sorts(TestCase):

    def test_only_instances_of_value_types_are_values(self):
        self.assertIs(_Kel.isValue(acme.Size(1)), True)
        self.assertIs(_Kel.isValue(_Kel.const(acme.Size(1))), True)
        self.assertIs(_Kel.isValue(acme.Badge("a", 1)), False)
        for thing in ANYTHING:
            self.assertIs(_Kel.isValue(thing), False)

    def test_only_collections_are_collections(self):
        store = acme.Store("s")
        self.assertIs(_Kel.isCollection(store.price), True)
        self.assertIs(_Kel.isCollection(store.restock), False)
        for thing in ANYTHING + [store]:
            self.assertIs(_Kel.isCollection(thing), False)

    def test_only_functions_of_the_runtime_are_functions(self):
        store = acme.Store("s")
        self.assertIs(_Kel.isFunction(store.restock), True)
        self.assertIs(_Kel.isFunction(store.price), False)
        for thing in ANYTHING + [store]:
            self.assertIs(_Kel.isFunction(thing), False)

    def test_only_entity_futures_are_entity_futures(self):
        future = _Kel.entityFuture("/nowhere", acme.Item.kelType)
        self.assertIs(_Kel.isEntityFuture(future), True)
        self.assertIs(_Kel.isFailedMount(future), False)
        for thing in ANYTHING + [acme.Item("i", 1)]:
            self.assertIs(_Kel.isEntityFuture(thing), False)

    def test_only_failed_mounts_are_failed_mounts(self):
        item = acme.Item("i", 1)
        self.assertIs(_Kel.isFailedMount(item), False)
        _Kel.convertEntityToFailedMount(item)
        self.assertIs(_Kel.isFailedMount(item), True)
        self.assertIs(_Kel.isEntityFuture(item), False)
        for thing in ANYTHING:
            self.assertIs(_Kel.isFailedMount(thing), False)

    def test_the_const_flag_is_that_of_the_wrapped_object(self):
        size = acme.Size(1)
        self.assertIs(_Kel.isConst(size), False)
        self.assertIs(_Kel.isConst(_Kel.const(size)), True)
        node = odd.Node(1)
        self.assertIs(_Kel.isConst(node), False)
        self.assertIs(_Kel.isConst(_Kel.constPtr(node)), True)

    def test_isConst_refuses_all_else(self):
        for thing in ANYTHING:
            self.assertRefused(TypeError, "expected a kelc-Python object", _Kel.isConst, thing)

    def test_a_class_made_by_calling_the_metaclass_stands_for_no_runtime_type(self):
        cls = type(acme.Size)("Own", (object,), {})
        own = cls()
        self.assertIs(_Kel.isValue(own), False)
        self.assertRefused(TypeError, "expected a kelc-Python object", _Kel.isConst, own)
        self.assertRefused(TypeError, "expected a kelc-Python object", _Kel.hashOf, own)
        self.assertRefused(
            TypeError, "expected a non-value kelc-Python object", _Kel.addressOf, own)
        self.assertIs(cls.kelType, None)
        self.assertIs(cls.__doc__, None)
        self.assertEqual(cls.attributes, ())


class Address(TestCase):

    def test_it_is_a_long_and_that_of_the_object(self):
        node = odd.Node(1)
        address = _Kel.addressOf(node)
        self.assertIs(type(address), long)
        self.assertNotEqual(address, 0)
        self.assertEqual(_Kel.addressOf(_Kel.constPtr(node)), address)
        self.assertNotEqual(_Kel.addressOf(odd.Node(1)), address)

    def test_a_value_has_none(self):
        self.assertRefused(
            TypeError, "expected a non-value kelc-Python object", _Kel.addressOf, acme.Size(1))

    def test_all_else_has_none(self):
        for thing in ANYTHING:
            self.assertRefused(
                TypeError, "expected a non-value kelc-Python object", _Kel.addressOf, thing)


class Hash(TestCase):

    def test_a_value_that_can_change_has_one(self):
        size = acme.Size(7)
        with self.assertRaises(TypeError):
            hash(size)
        self.assertEqual(_Kel.hashOf(size), _Kel.hashOf(_Kel.const(size)))
        self.assertEqual(_Kel.hashOf(size), hash(_Kel.const(size)))

    def test_it_is_a_positive_int_with_bit_31_set_too(self):
        hashes = [_Kel.hashOf(acme.Size((n * 0x9e3779b1) & 0xffffffff)) for n in range(64)]
        self.assertEqual(set(type(each) for each in hashes), set([int]))
        self.assertTrue(all(0 <= each < 2 ** 32 for each in hashes), hashes)
        self.assertTrue(any(each >= 2 ** 31 for each in hashes), hashes)

    def test_one_that_the_runtime_refuses_is_told(self):
        value = _Kel.pyType(_Kel.typeNode("Throws::Value"))(3)
        throws = _Kel.pyType(_Kel.typeNode("Throws::Object"))(1)
        throws.kind = "Kel::RangeException"
        try:
            self.assertRefused(IndexError, 'Throws::Value: Kel::RangeException("text")',
                               _Kel.hashOf, value)
        finally:
            throws.kind = ""
        self.assertEqual(_Kel.hashOf(value), _Kel.hashOf(value))

    def test_views_of_one_object_hash_alike(self):
        node = odd.Node(1)
        self.assertEqual(_Kel.hashOf(node), _Kel.hashOf(_Kel.nonConstPtr(node)))

    def test_all_else_has_none(self):
        for thing in ANYTHING:
            self.assertRefused(TypeError, "expected a kelc-Python object", _Kel.hashOf, thing)


class Types(TestCase):

    def test_a_type_is_found_by_its_full_name(self):
        self.assertEqual(_Kel.typeNode("Acme::Item").fullTypeName, "Acme::Item")
        self.assertIs(_Kel.typeNode("Acme::Item"), _Kel.typeNode("Acme::Item"))

    def test_an_unknown_name_is_refused_in_the_runtimes_words(self):
        self.assertRefused(TypeError, 'Kel::NoTypeNodeException("no type \'Acme::Nothing\'")',
                           _Kel.typeNode, "Acme::Nothing")
        self.assertRefused(
            TypeError, 'Kel::NoTypeNodeException("no type \'\'")', _Kel.typeNode, "")

    def test_typeNode_takes_a_text_without_NUL(self):
        self.assertRefused(
            TypeError, "typeNode() argument 1 must be string without null bytes, not str",
            _Kel.typeNode, "a\0b")
        self.assertRefused(
            TypeError, "typeNode() argument 1 must be string, not int", _Kel.typeNode, 5)
        self.assertIs(_Kel.typeNode(u"Acme::Item"), acme.Item.kelType)

    def test_pyType_gives_the_class_with_a_reference_of_its_own(self):
        kel_type = _Kel.typeNode("Acme::Badge")
        cls = _Kel.pyType(kel_type)
        before = sys.getrefcount(cls)
        classes = [_Kel.pyType(kel_type) for _ in range(10)]
        self.assertTrue(all(each is cls for each in classes))
        self.assertEqual(sys.getrefcount(cls), before + 10)

    def test_pyType_takes_type_wrappers_only(self):
        for thing in ANYTHING:
            if thing is not acme.Size.kelType:
                self.assertRefused(TypeError, "expected a _Kel.KelType", _Kel.pyType, thing)


class Demangle(unittest.TestCase):

    def test_a_mangled_name_is_told(self):
        self.assertEqual(_Kel.demangle("N4Acme4ItemE"), "Acme::Item")
        self.assertEqual(_Kel.demangle("i"), "int")

    def test_another_text_comes_back(self):
        for text in "", "Acme::Item", "_Znonsense", "%s %n":
            self.assertEqual(_Kel.demangle(text), text)

    def test_it_takes_a_text(self):
        for thing, text in ((5, "string, not int"), (None, "string, not None"),
                            ("a\0b", "string without null bytes, not str")):
            with self.assertRaises(TypeError) as caught:
                _Kel.demangle(thing)
            self.assertEqual(str(caught.exception), "argument 1 must be " + text)


class ThreadSafePointers(unittest.TestCase):

    def test_threads_that_share_an_object_lose_no_reference(self):
        in_child("""
            import sys, threading
            import _Kel, odd
            assert _Kel.enableThreadSafePointers() is None
            node = odd.Node(1)

            def churn():
                for _ in xrange(2000):
                    _Kel.constPtr(node)

            threads = [threading.Thread(target=churn) for _ in range(4)]
            [thread.start() for thread in threads]
            [thread.join() for thread in threads]
            assert odd.Node.live == 1
            del node
            assert odd.Node.live == 0
            """).expect()
