// The extension module qelimaging._core: the host (module and runtime loaded
// once per process), images over numpy memory, operation calls with the GIL
// released, and the same file readers and writers as qel.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <climits>
#include <cmath>
#include <cstdlib>
#include <optional>

#include "array_image.h"
#include "operations.h"
#include "qel/version.h"
#include "tools/image_file.h"
#include "tools/operations.h"
#include "tools/people.h"

namespace py = pybind11;

namespace qelpy {
namespace {

// Loaded once and never unloaded: arrays may outlive the package's objects.
struct Loaded {
    qel::Host host;
    Components components;
};
Loaded* g_loaded = nullptr;

Loaded& Need() {
    if (g_loaded == nullptr) throw std::runtime_error("qelimaging: the module is not loaded");
    return *g_loaded;
}

// An image for Python: a runtime image, or an ArrayImage over the memory of
// `owner`, which it keeps alive.
struct Image {
    SmartPtr<IQEL> image;
    py::object owner;
    ArrayImage* array = nullptr;  // `image` itself when it wraps `owner`

    qel::Pixels Pixels() const { return qel::PixelsOf(image.Get()); }
    int Planes() const {
        int planes = 0;
        image->GetSize(nullptr, nullptr, &planes);
        return planes;
    }
};

std::string ModelName(unsigned model) {
    std::string name;
    for (int i = 0; i < 4; ++i) name.push_back(static_cast<char>(model >> (8 * i) & 0xFF));
    return name;
}

// The numpy view of one plane. Its base holds a reference to the image, so the
// array keeps the pixels alive after every other object is gone.
py::array PlaneArray(const Image& self, int plane) {
    if (self.owner && plane == 0) return py::reinterpret_borrow<py::array>(self.owner);
    qel::Pixels p = self.Pixels();
    int reserved = 0;
    p.bits = nullptr;
    if (plane < 0 || plane >= std::max(self.Planes(), 1)) throw py::index_error("no such plane");
    self.image->GetBits(plane, &reserved, &p.bits, &p.stride);
    std::vector<ssize_t> shape, strides;
    py::dtype dtype = py::dtype::of<uint8_t>();
    if (p.bitCount == 32 && p.colourModel == QEL_MODEL_MONO) {
        dtype = py::dtype::of<int32_t>();
        shape = {p.height, p.width};
        strides = {p.stride, 4};
    } else if (p.bitCount == 24 || p.bitCount == 32) {
        shape = {p.height, p.width, p.bitCount / 8};
        strides = {p.stride, p.bitCount / 8, 1};
    } else if (p.bitCount == 8) {
        shape = {p.height, p.width};
        strides = {p.stride, 1};
    } else {  // 1, 4 and 16 bits: the packed bytes of each row
        shape = {p.height, static_cast<ssize_t>(p.RowBytes())};
        strides = {p.stride, 1};
    }
    if (p.bits == nullptr) return py::array(dtype, std::vector<ssize_t>(shape.size(), 0));
    self.image->AddRef();
    py::capsule keep(static_cast<void*>(self.image.Get()),
                     [](void* image) { static_cast<IQEL*>(image)->Release(); });
    return py::array(dtype, shape, strides, p.bits, keep);
}

// The image format an array stands for, or a ValueError naming what is wrong.
Image Wrap(const py::array& array, bool written) {
    const py::dtype dtype = array.dtype();
    const bool bytes = dtype.is(py::dtype::of<uint8_t>());
    const bool integers = dtype.is(py::dtype::of<int32_t>()) && dtype.byteorder() != '>';
    int bitCount = 0;
    unsigned model = 0;
    if (bytes && array.ndim() == 2) {
        bitCount = 8, model = QEL_MODEL_MONO;
    } else if (bytes && array.ndim() == 3 && (array.shape(2) == 3 || array.shape(2) == 4)) {
        bitCount = array.shape(2) == 3 ? 24 : 32;
        model = array.shape(2) == 3 ? QEL_MODEL_BGR : QEL_MODEL_ARGB;
    } else if (integers && array.ndim() == 2) {
        bitCount = 32, model = QEL_MODEL_MONO;
    } else {
        std::string shape;
        for (ssize_t i = 0; i < array.ndim(); ++i) shape += (i ? "x" : "") + std::to_string(array.shape(i));
        throw py::value_error("expected a uint8 HxW, HxWx3 or HxWx4 array or an int32 HxW array, got " +
                              py::str(static_cast<py::handle>(dtype)).cast<std::string>() + " " +
                              (shape.empty() ? "scalar" : shape));
    }
    const ssize_t height = array.shape(0), width = array.shape(1);
    if (height == 0 || width == 0) throw py::value_error("the array is empty");
    if (height > INT_MAX || width > INT_MAX) throw py::value_error("the array is too large for an image");
    const ssize_t pixelBytes = bitCount / 8;
    if (array.strides(1) != pixelBytes || (array.ndim() == 3 && array.strides(2) != 1))
        throw py::value_error(
            "the pixels of each row must be contiguous (channels last, no step); "
            "pass numpy.ascontiguousarray(array)");
    const ssize_t stride = array.strides(0);
    if ((height > 1 && std::llabs(stride) < width * pixelBytes) || std::llabs(stride) > INT_MAX)
        throw py::value_error(
            "the rows of the array overlap or lie too far apart; "
            "pass numpy.ascontiguousarray(array)");
    if (written && !array.writeable()) throw py::value_error("the array is read-only and would be written");
    Image wrapped;
    wrapped.image.Reset(ArrayImage::Make(static_cast<unsigned char*>(const_cast<void*>(array.data())),
                                         static_cast<int>(height > 1 ? stride : width * pixelBytes),
                                         static_cast<int>(width), static_cast<int>(height), bitCount, model));
    wrapped.owner = array;
    wrapped.array = static_cast<ArrayImage*>(static_cast<IQELImageDIB*>(wrapped.image.Get()));
    return wrapped;
}

Image NewRuntimeImage(int width, int height, int bitCount, unsigned model, int planes) {
    SmartPtr<IQELImageDIB> made = Need().host.NewImage();
    if (!made) throw std::runtime_error("the host runtime made no image");
    if (width != 0 || height != 0) {
        const QResult result = made->Create(width, height, planes, bitCount, model);
        if (result < 0)
            throw py::value_error("cannot create a " + std::to_string(width) + "x" + std::to_string(height) +
                                  " image of " + std::to_string(bitCount) + " bits and " +
                                  std::to_string(planes) + " planes: " + qeltool::DescribeResult(result));
    }
    Image image;
    image.image.Reset(made.Detach());
    return image;
}

// A runtime image with the same size, format, palette and pixels.
Image CopyOf(const Image& source) {
    Image copy = NewRuntimeImage(0, 0, 0, 0, 1);
    SmartPtr<IQELImage> target;
    copy.image->QueryInterface(qel::iid::IQELImage, target.OutVoid());
    QResult result = QEL_E_NOINTERFACE;
    {
        py::gil_scoped_release release;
        if (target) result = target->Assign(source.image.Get(), 0);
    }
    if (result < 0) throw std::runtime_error("cannot copy the image: " + qeltool::DescribeResult(result));
    return copy;
}

// A Python callable as the coordinate map: called with (x, y), answers (x, y).
// The GIL is taken for each point; the first exception stops the calls and is
// raised when the operation returns.
class CallableTransform final : public ITransform {
public:
    explicit CallableTransform(py::object function) : function_(std::move(function)) {}
    QResult QueryInterface(const IID& iid, void** object) override {
        if (object == nullptr) return QEL_E_POINTER;
        *object = (iid == qel::iid::IUnknown || iid == qel::iid::ITransform) ? static_cast<ITransform*>(this)
                                                                             : nullptr;
        return *object != nullptr ? QEL_OK : QEL_E_NOINTERFACE;
    }
    uint32_t AddRef() override { return 2; }  // lives on the caller's stack for one call
    uint32_t Release() override { return 1; }
    QResult TransformPoint(double* x, double* y, double*) override {
        py::gil_scoped_acquire acquire;
        if (!failed_) {
            try {
                const py::tuple point = function_(*x, *y);
                if (point.size() == 2) {
                    *x = point[0].cast<double>();
                    *y = point[1].cast<double>();
                    return QEL_OK;
                }
                PyErr_SetString(PyExc_ValueError, "the coordinate map must answer a pair (x, y)");
            } catch (py::error_already_set& error) {
                error.restore();
            } catch (const py::cast_error&) {
                PyErr_SetString(PyExc_ValueError, "the coordinate map must answer two numbers");
            }
            failed_ = true;
        }
        *x = *y = std::nan("");
        return QEL_E_FAIL;
    }
    bool Failed() const { return failed_; }

private:
    py::object function_;
    bool failed_ = false;
};

// Calls the module's method; the GIL is released for the call. Returns the
// result code and the image the method delivered (None when it delivers none).
py::tuple Call(const std::string& method, const std::vector<std::optional<Image*>>& images,
               const std::vector<double>& numbers, const py::object& transform) {
    Loaded& loaded = Need();
    CallArguments args;
    for (const auto& image : images) {
        args.images.push_back(image && *image ? (*image)->image.Get() : nullptr);
        if (image && *image && (*image)->array != nullptr) (*image)->array->ForgetRefusal();
    }
    args.numbers = numbers;
    std::optional<AffineTransform> affine;
    std::optional<CallableTransform> callable;
    if (py::isinstance<py::tuple>(transform)) {
        const auto m = transform.cast<std::vector<double>>();
        if (m.size() != 6) throw py::value_error("an affine map has six numbers");
        const double values[6] = {m[0], m[1], m[2], m[3], m[4], m[5]};
        args.transform = &affine.emplace(values);
    } else if (!transform.is_none()) {
        args.transform = &callable.emplace(transform);
    }
    QResult result = QEL_OK;
    SmartPtr<IQEL> made;
    bool known = false;
    {
        py::gil_scoped_release release;
        known = RunOperation(loaded.components, method, args, &result, &made);
    }
    if (!known) throw py::value_error("no operation " + method + " with these arguments");
    if (callable && callable->Failed()) throw py::error_already_set();
    // The module replaces an image it writes by one of another format (a
    // 32-bit result, say); an array cannot take it and is left as it was.
    for (const auto& image : images)
        if (image && *image && (*image)->array != nullptr && (*image)->array->RefusedBitCount() != 0)
            throw py::value_error(method + " makes a " + std::to_string((*image)->array->RefusedBitCount()) +
                                  "-bit image, which the array it would write in place cannot hold; the "
                                  "array is unchanged (call it without inplace=True)");
    if (!made) return py::make_tuple(result, py::none());
    Image image;
    // IncreaseBpp may hand back its source: the array it wraps is the result.
    for (const auto& given : images)
        if (given && *given && (*given)->image.Get() == made.Get()) image.owner = (*given)->owner;
    image.image = std::move(made);
    return py::make_tuple(result, py::cast(std::move(image)));
}

// qel's rotate word through the host layer qel itself calls, so that a chain
// gives qel's bytes: clockwise for every angle, exact quarter and half turns,
// the picture reaching the edges and the corners filled as a person expects.
// `background` is 0xRRGGBB, or none for the default fill. Answers as `call`
// does.
py::tuple RotateClockwise(const Image& source, double degrees, int method, bool addAlpha, bool keepSize,
                          std::optional<unsigned> background) {
    Loaded& loaded = Need();
    if (!std::isfinite(degrees)) throw py::value_error("the angle must be a finite number");
    if (background && *background > 0xFFFFFF) throw py::value_error("the background is a colour 0xRRGGBB");
    const qel::Pixels p = source.Pixels();
    // The corners' default fill is read from the top-left pixel.
    if (p.width <= 0 || p.height <= 0 || p.bits == nullptr) throw py::value_error("the image is empty");
    long long width = 0, height = 0;
    qeltool::RotatedSize(p.width, p.height, degrees, keepSize, &width, &height);
    // The layer makes the result with int sides.
    if (width > INT_MAX || height > INT_MAX)
        throw py::value_error("the turned image would be " + std::to_string(width) + "x" +
                              std::to_string(height) + " pixels, too large for an image");
    qeltool::RotateOptions options;
    options.method = method;
    options.addAlpha = addAlpha;
    options.keepSize = keepSize;
    options.hasBackground = background.has_value();
    options.background = background.value_or(0);
    QResult result = QEL_OK;
    SmartPtr<IQEL> made;
    {
        py::gil_scoped_release release;
        result = qeltool::RotateClockwise(loaded.components.transform.Get(), loaded.host, source.image.Get(),
                                          degrees, options, &made);
    }
    if (result < 0 || !made) return py::make_tuple(result, py::none());
    Image image;
    image.image = std::move(made);
    return py::make_tuple(result, py::cast(std::move(image)));
}

void Load(const std::string& folder) {
    if (g_loaded != nullptr) return;
    auto loaded = std::make_unique<Loaded>();
    std::string error;
    if (!loaded->host.Load(folder, &error))
        throw std::runtime_error("cannot load the module from " + folder + ": " + error);
    Components& c = loaded->components;
    c.colours = loaded->host.Create<IQELColorTransform>(L"QELColorTransform", qel::iid::IQELColorTransform);
    c.transform = loaded->host.Create<IQELTransform>(L"QELTransform", qel::iid::IQELTransform);
    c.deform = loaded->host.Create<IQELDeform>(L"QELDeform", qel::iid::IQELDeform);
    c.filters =
        loaded->host.Create<IQELFilterTransform>(L"QELFilterTransform", qel::iid::IQELFilterTransform);
    c.maths = loaded->host.Create<IQELMaths>(L"QELMaths", qel::iid::IQELMaths);
    if (!c.colours || !c.transform || !c.deform || !c.filters || !c.maths)
        throw std::runtime_error("the module in " + folder + " lacks one of its five components");
    // The module fills its caches of the runtime's image locators on its first
    // image-creating call, without a lock: make that call now, on one thread.
    SmartPtr<IQELImageDIB> pixel = loaded->host.NewImage(1, 1, 24, QEL_MODEL_BGR);
    SmartPtr<IQEL> made;
    if (!pixel || c.transform->Flip(pixel.Get(), made.Out()) < 0 ||
        c.maths->CreateDestImage(made.Out(), pixel.Get(), 8, QEL_MODEL_MONO) < 0)
        throw std::runtime_error("the module in " + folder + " made no image");
    g_loaded = loaded.release();
}

// Reads as qel does: the EXIF orientation applied, then palette and 1- or
// 4-bit images expanded for people unless asked to keep them.
Image Read(const std::string& path, long long maxPixels, bool keepPalette, bool keepDepth, bool autorotate) {
    Loaded& loaded = Need();
    std::string error;
    SmartPtr<IQEL> read;
    {
        py::gil_scoped_release release;
        qeltool::LoadOptions options;
        options.maxPixels = maxPixels;
        options.autorotate = autorotate;
        read = qeltool::LoadImageFile(loaded.host, path, options, nullptr, &error);
        qeltool::ReadingChoices choices;
        choices.keepPalette = keepPalette;
        choices.keepDepth = keepDepth;
        if (read) read = qeltool::ExpandForViewing(loaded.host, std::move(read), choices);
    }
    if (!read) throw std::runtime_error(path + ": " + error);
    Image image;
    image.image = std::move(read);
    return image;
}

void Write(const Image& image, const std::string& path, int quality) {
    std::string error;
    bool written = false;
    {
        py::gil_scoped_release release;
        written = qeltool::SaveImageFile(image.image.Get(), path, quality, &error);
    }
    if (!written) throw std::runtime_error(path + ": " + error);
}

}  // namespace
}  // namespace qelpy

PYBIND11_MODULE(_core, m) {
    using qelpy::Image;
    m.doc() = "The imaging module's host for Python (use the qelimaging package).";
    m.attr("__version__") = QEL_VERSION;
    m.def("load", &qelpy::Load, py::arg("folder"));
    m.def("call", &qelpy::Call, py::arg("method"), py::arg("images"), py::arg("numbers"),
          py::arg("transform") = py::none());
    m.def("rotate_clockwise", &qelpy::RotateClockwise, py::arg("image"), py::arg("degrees"),
          py::arg("method"), py::arg("add_alpha"), py::arg("keep_size"), py::arg("background"));
    m.def("methods", &qelpy::OperationNames);
    m.def("method_names", &qeltool::MethodNames);
    m.def(
        "seed", [](unsigned seed) { std::srand(seed); }, py::arg("seed"));
    m.def("describe", [](long long code) { return qeltool::DescribeResult(static_cast<QResult>(code)); });
    m.def("read", &qelpy::Read, py::arg("path"), py::arg("max_pixels"), py::arg("keep_palette"),
          py::arg("keep_depth"), py::arg("autorotate"));
    m.def("write", &qelpy::Write, py::arg("image"), py::arg("path"), py::arg("quality"));

    py::class_<Image>(m, "Image")
        .def_static("new", &qelpy::NewRuntimeImage, py::arg("width"), py::arg("height"), py::arg("bit_count"),
                    py::arg("colour_model"), py::arg("planes"))
        .def_static("wrap", &qelpy::Wrap, py::arg("array"), py::arg("written"))
        .def("copy", &qelpy::CopyOf)
        .def("plane", &qelpy::PlaneArray, py::arg("plane"))
        .def_property_readonly("width", [](const Image& s) { return s.Pixels().width; })
        .def_property_readonly("height", [](const Image& s) { return s.Pixels().height; })
        .def_property_readonly("bit_count", [](const Image& s) { return s.Pixels().bitCount; })
        .def_property_readonly("colour_model",
                               [](const Image& s) { return qelpy::ModelName(s.Pixels().colourModel); })
        .def_property_readonly("colour_model_code", [](const Image& s) { return s.Pixels().colourModel; })
        .def_property_readonly("planes", &Image::Planes)
        .def_property_readonly("wraps_array", [](const Image& s) { return bool(s.owner); })
        .def(
            "address",
            [](const Image& s, int plane) {
                unsigned char* bits = nullptr;
                int stride = 0, reserved = 0;
                s.image->GetBits(plane, &reserved, &bits, &stride);
                return reinterpret_cast<uintptr_t>(bits);
            },
            py::arg("plane") = 0)
        .def("palette",
             [](const Image& s) {
                 std::vector<std::tuple<int, int, int, int>> entries;
                 SmartPtr<IQELImagePalette> palette;
                 s.image->QueryInterface(qel::iid::IQELImagePalette, palette.OutVoid());
                 RGBQUAD* list = nullptr;
                 unsigned count = 0;
                 if (palette && palette->GetPalette(&list, &count) >= 0 && list != nullptr)
                     for (unsigned i = 0; i < std::min(count, 256u); ++i)
                         entries.emplace_back(list[i].rgbBlue, list[i].rgbGreen, list[i].rgbRed,
                                              list[i].rgbReserved);
                 return entries;
             })
        .def("set_palette", [](const Image& s, const std::vector<std::tuple<int, int, int, int>>& entries) {
            if (entries.size() > 256) throw py::value_error("a palette has at most 256 entries");
            std::vector<RGBQUAD> list;
            for (const auto& [b, g, r, a] : entries)
                list.push_back(RGBQUAD{static_cast<uint8_t>(b), static_cast<uint8_t>(g),
                                       static_cast<uint8_t>(r), static_cast<uint8_t>(a)});
            SmartPtr<IQELImageDIB> dib;
            s.image->QueryInterface(qel::iid::IQELImageDIB, dib.OutVoid());
            if (!dib || dib->SetPalette(list.data(), static_cast<unsigned>(list.size())) < 0)
                throw py::value_error("this image takes no palette");
        });
}
