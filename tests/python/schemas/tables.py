"""The types of the runtime and of the two schemas: the document of each class, and below it its
own attributes in their order, each with its signature and the words of its flags. Tests rely on
every name here.
"""

RUNTIME = """
Kel::MountMode : Kel::Enum
    read = 0
    write = 1
Kel::Entity : Kel::Type(name) : Kel::PtrInterface
    name : Kel::String immutable
    fullName : Kel::String
Kel::Dir : Kel::Type(name) : Kel::Entity
    mountMode : Kel::MountMode rw
    isMounted : bool rw
    entityPtr : Kel::Entity::Ptr[name] n
    mountExempt : bool rw
Kel::ActivityManager : Kel::Type() : Kel::Entity
    run : void()
    runUntilIdle : void()
    stop : void()
    start : void()
    isRunning : bool
Kel::ActivityManagerConfig : Kel::Type() : Kel::Entity
    stopOnQuiesce : bool rw
"""

ACME = """
Acme::Color : Kel::Enum
    red = 0
    blue = 1
Acme::Size : Kel::Type(value) : Kel::Nominal
    value : U32 rw dom
Acme::Name : Kel::Type(value) : Kel::String
    value : Kel::String dom
Acme::Point : Kel::Type() : Kel::Nominal
    x : S32 rw dom
    y : S32 rw dom
Acme::Thing : Kel::Type(name) : Kel::Entity
    note : Kel::String rw n
Acme::Item : Kel::Type(name, id) : Acme::Thing
    id : U32 immutable
    size : Acme::Size rw n
    color : Acme::Color rw n
    position : Acme::Point rw n
    parent : Acme::Item::Ptr rw n
    weight : double rw n
    lookup : Acme::Item::Ptr(name : Acme::Name, size : Acme::Size)
    resize : void(size : Acme::Size)
    add : S32(a : S32, b : S32)
    part : Acme::Item::PtrConst[name] rw
    unit : static Kel::String rw
    describe : static Kel::String(color : Acme::Color)
Acme::StockItem : Kel::Type(sku, count)
    sku : Kel::String immutable
    count : U32 rw n
Acme::Badge : Kel::Type(text, level)
    text : Kel::String
    level : U32 rw
Acme::Store : Kel::Type(name) : Kel::Entity
    item : Acme::StockItem[sku] rw n instantiating
    favorite : Acme::StockItem::Ptr[sku] rw n
    price : U32[Kel::String] rw n
    alias : Acme::Name[Acme::Name] rw
    tag : set bool[Kel::String] rw n
    order : queue Kel::String[U32] rw n
    undo : stack Acme::Size[U32] rw
    track : vector S32[U32] rw
    badge : Acme::Badge rw instantiating
    restock : Acme::StockItem::Ptr(sku : Kel::String, count : U32)
Acme::Shelf : Kel::Type(name) : Kel::Dir
    capacity : U32 rw
    owner : Kel::String rw
    slot : Kel::Entity::Ptr[name] rw
"""

ODD = """
Odd::Scalars : Kel::Type()
    u8 : U8 rw
    s8 : S8 rw
    u16 : U16 rw
    s16 : S16 rw
    u32 : U32 rw
    s32 : S32 rw
    u64 : U64 rw
    s64 : S64 rw
    flag : bool rw
    letter : char rw
    ratio : float rw
    weight : double rw
    text : Kel::String rw
    data : Kel::Bytes rw
    delay : Kel::Seconds rw
    color : Acme::Color rw
    es8 : Odd::ES8 rw
    eu16 : Odd::EU16 rw
    es16 : Odd::ES16 rw
    eu32 : Odd::EU32 rw
    es32 : Odd::ES32 rw
    eu64 : Odd::EU64 rw
    es64 : Odd::ES64 rw
    twin : Odd::Twin rw
    maybe : U32 rw opt
    maybeSize : Acme::Size rw opt
    fixed : U32
    rawColor : Acme::Color(value : U8)
    rawES32 : Odd::ES32(value : S32)
    rawEU64 : Odd::EU64(value : U64)
    rawES64 : Odd::ES64(value : S64)
Odd::Point3 : Kel::Type() : Acme::Point
    z : S32 rw dom
Odd::Segment : Kel::Type(start, end) : Kel::Nominal
    start : Acme::Point dom
    end : Acme::Point dom
    label : Kel::String rw dom
Odd::Boxed : Kel::Type() : Kel::Nominal
    inner : Acme::Size rw dom
    defaultAttribute : static Kel::String
Odd::PyText : Kel::Type() : Kel::Nominal
    source : Kel::String rw dom
    defaultReprAttribute : static Kel::String
Odd::Both : Kel::Type() : Kel::Nominal
    a : U32 rw dom
    b : Kel::String rw dom
    defaultAttribute : static Kel::String
    defaultReprAttribute : static Kel::String
Odd::TwoDomain : Kel::Type() : Kel::Nominal
    value : U32 rw dom
    other : U32 rw dom
Odd::OneDomain : Kel::Type() : Kel::Nominal
    value : U32 rw dom
    other : U32 rw
Odd::BadStatic : Kel::Type() : Kel::Nominal
    value : U32 rw dom
    defaultAttribute : Kel::String rw dom
Odd::BadKind : Kel::Type() : Kel::Nominal
    value : U32 rw dom
    defaultAttribute : static U32
Odd::BadColl : Kel::Type() : Kel::Nominal
    value : U32 rw dom
    defaultAttribute : static Kel::String[U32] rw
Odd::BadFunc : Kel::Type() : Kel::Nominal
    value : U32 rw dom
    defaultAttribute : static Kel::String()
Odd::MoreBoxed : Kel::Type() : Odd::Boxed
    label : Kel::String rw dom
Odd::MaybeBoxed : Kel::Type() : Kel::Nominal
    inner : Acme::Size rw opt dom
    defaultAttribute : static Kel::String
Odd::Thrower : Kel::Type() : Kel::Nominal
    value : U32 rw dom
    defaultAttribute : static Kel::String
Odd::BadName : Kel::Type() : Kel::Nominal
    value : U32 rw dom
    defaultAttribute : static Kel::String
Odd::BadRepr : Kel::Type() : Kel::Nominal
    number : U32 rw dom
    defaultReprAttribute : static Kel::String
Odd::Shape : Kel::Type() : Kel::Nominal
    circle : U32 rw dom
    square : Acme::Point rw dom
Odd::ColorSet : Kel::DenseEnumBoolSet
    red : bool rw dom
    blue : bool rw dom
Odd::Holder : Kel::Type() : Kel::Nominal
    node : Odd::Node::Ptr rw dom
Odd::Nest : Kel::Type() : Kel::Nominal
    holder : Odd::Holder rw dom
Odd::Sealed : Kel::Type() : Kel::Nominal
    n : U32 dom
    m : U32 rw dom
Odd::QuietHolder : Kel::Type() : Kel::Nominal
    node : Odd::Node::Ptr rw
    n : U32 rw dom
Odd::Tags : Kel::Type() : Kel::Nominal
    entry : U32[Kel::String] rw
    list : vector S32[U32] rw
    common : static U32[Kel::String] rw
Odd::Payload : Kel::Type() : Kel::Nominal
    data : Kel::Bytes rw dom
    n : U64 rw dom
    text : Kel::String rw dom
    raw : Kel::String rw
Odd::Empty : Kel::Type() : Kel::Nominal
Odd::Renamed : Kel::Type(number) : Kel::Nominal
    value : U32 rw dom
    defaultAttribute : static Kel::String
    defaultReprAttribute : static Kel::String
Odd::Values : Kel::Type()
    point3 : Odd::Point3 rw
    segment : Odd::Segment rw
    boxed : Odd::Boxed rw
    moreBoxed : Odd::MoreBoxed rw
    maybeBoxed : Odd::MaybeBoxed rw
    thrower : Odd::Thrower rw
    pyText : Odd::PyText rw
    both : Odd::Both rw
    twoDomain : Odd::TwoDomain rw
    oneDomain : Odd::OneDomain rw
    badStatic : Odd::BadStatic rw
    badKind : Odd::BadKind rw
    badColl : Odd::BadColl rw
    badFunc : Odd::BadFunc rw
    badName : Odd::BadName rw
    badRepr : Odd::BadRepr rw
    shape : Odd::Shape rw
    colorSet : Odd::ColorSet rw
    holder : Odd::Holder rw
    nest : Odd::Nest rw
    sealed : Odd::Sealed rw
    quietHolder : Odd::QuietHolder rw
    tags : Odd::Tags rw
    payload : Odd::Payload rw
    empty : Odd::Empty rw
    size : Acme::Size rw
    name : Acme::Name rw
    point : Acme::Point rw
    json : Acme::Point rw
Odd::Node : Kel::Type(id)
    id : U32 immutable
    next : Odd::Node::Ptr rw
    constNext : Odd::Node::PtrConst rw
    rawNext : Odd::Node::RawPtr rw
    value : U32 rw
    bump : void()
    peek : U32()
    references : U32()
    live : static U32
    make : static Odd::Node::Ptr(kind : Kel::String, id : U32)
Odd::SpecialNode : Kel::Type(id) : Odd::Node
    extra : U32 rw
Odd::Vehicle : Kel::Type(kind)
Odd::Car : Kel::Type() : Odd::Vehicle
Odd::PtrDefault : Kel::Type()
    value : U32 rw
    defaultAttribute : static Kel::String
Odd::Own : Kel::Type()
    n : U32 rw
Odd::Link : Kel::Type(node, color)
    node : Odd::Node::Ptr
    color : Acme::Color
Odd::Refuser : Kel::Type(n)
    n : U32
Odd::Keeper : Kel::Type()
    own : Odd::Own::Ptr rw
    node : Odd::Node::Ptr rw
Odd::Gate : Kel::Type() : Kel::Constrainer
Odd::SubGate : Kel::Type() : Odd::Gate
Odd::Clash : Kel::Type()
    entry : Acme::StockItem[sku] rw instantiating
    newEntry : U32 rw
Odd::Coll : Kel::Type()
    slot : array U32[U32] rw
    packed : array U32[U32] rw packed
    pod : U8[U32] rw pod
    blind : U32[Kel::String] rw
    node : Odd::Node::PtrConst[id] rw
    part : set Acme::Item::PtrConst[name] rw
    byNode : U32[Odd::Node::PtrConst] rw
    size : Acme::Size[Acme::Size] rw
    maybe : U32[Kel::String] rw opt
    text : U32[Odd::PyText] rw
    track : vector S32[U32] rw
    line : queue U32[U32] rw
    pile : stack U32[U32] rw
    registry : static U32[Kel::String] rw
    shared : static Odd::Node::PtrConst[id] rw
    fleet : static Acme::StockItem[sku] rw instantiating
    intake : queue Acme::StockItem[U32] rw instantiating
    brittle : U32[Kel::String] rw
    log : Kel::String()
Odd::Board : Kel::Type(name) : Kel::Entity
    mark : U32[Kel::String] rw
    register : static U32[Kel::String] rw
Odd::Args : Kel::Type()
    none : U32()
    one : U32(a : U32)
    nine : S64(a : S32, b : S32, c : S32, d : S32, e : S32, f : S32, g : S32, h : S32, i : S32)
    opt : bool(a : U32)
    size : Acme::Size(s : Acme::Size)
    node : Odd::Node::Ptr(n : Odd::Node::Ptr)
    pyText : Odd::PyText(t : Odd::PyText)
    many : Odd::Node::Ptr(n : Odd::Node::Ptr, b : S32, c : S32, d : S32, e : S32, f : S32, g : S32, h : S32, i : S32)
    keep : void(n : Odd::Node::Ptr)
    kept : Odd::Node::Ptr()
    poke : invasive U32()
Odd::Faults : Kel::Type()
    fail : void(kind : Kel::String, text : Kel::String)
    failErrno : void(number : S32, text : Kel::String)
    failTraced : void(text : Kel::String)
    bad : U32 rw
Odd::Probe : Kel::Type()
    gilHeld : bool()
    activityLockHeld : bool()
    thread : S64()
    gilOnRead : bool
    gilOnWrite : U32 rw
    gilAtWrite : U32
Odd::Notes : Kel::Type()
    a : U32 rw n
    b : U32 rw n
    map : U32[Kel::String] rw n
    byText : U32[Odd::PyText] rw n
    quiet : U32 rw
    setLater : void(value : U32)
"""
